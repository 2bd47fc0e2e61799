#include "Platform/Formats/DiskImage/ForeignVolume.hpp"

#include "Platform/Formats/Apfs/Volume.hpp"
#include "Platform/Formats/ByteCursor.hpp"
#include "Platform/Formats/HfsPlus/Volume.hpp"

namespace corvane {
namespace {

constexpr std::uint64_t sectorSize = 512;

bool has(const RandomAccess& disk, std::uint64_t offset, std::string_view mark) {
    std::string bytes(mark.size(), '\0');
    if (disk.size() < offset + bytes.size()) return false;
    disk.read(offset, bytes);
    return bytes == mark;
}

bool hasBootSignature(const RandomAccess& disk) { return has(disk, 510, "\x55\xAA"); }

std::string kindOfVolume(const RandomAccess& disk) {
    if (has(disk, 3, "NTFS    ")) return "NTFS";
    if (has(disk, 3, "EXFAT   ")) return "exFAT";
    if (hasBootSignature(disk) && (has(disk, 54, "FAT") || has(disk, 82, "FAT32"))) return "FAT";
    if (has(disk, 1024, "BD")) return "Mac OS Standard (HFS)";
    if (has(disk, 32769, "CD001")) return "ISO 9660";
    return "";
}

/// Of a part in the map of the oldest kind, where no system puts the volumes that are read elsewhere.
std::string kindOfPart(const RandomAccess& part) {
    const std::string prefix = "in an MBR partition map, ";
    if (HfsPlus::Volume::isRecognized(part)) return prefix + "Mac OS Extended";
    if (Apfs::Volume::isRecognized(part)) return prefix + "APFS";
    return kindOfVolume(part);
}

/// Four entries of 16 bytes stand before the signature: the type, and first and number of sectors.
std::string kindsOfParts(const RandomAccess& disk) {
    constexpr std::size_t tableOffset = 446;
    std::string table(64, '\0');
    disk.read(tableOffset, table);
    ByteCursor cursor(table, "partition map", tableOffset);
    std::string kinds;
    for (int left = 4; left > 0; --left) {
        cursor.skip(4);
        const bool isUsed = cursor.u8() != 0;
        cursor.skip(3);
        const std::uint64_t first = cursor.u32LittleEndian() * sectorSize;
        const std::uint64_t size = cursor.u32LittleEndian() * sectorSize;
        if (!isUsed || first > disk.size() || size > disk.size() - first) continue;
        const std::string kind = kindOfPart(PartAccess(disk, first, size));
        if (!kind.empty() && kinds.find(kind) == std::string::npos) kinds += (kinds.empty() ? "" : ", ") + kind;
    }
    return kinds;
}

} // namespace

std::string foreignVolumeKinds(const RandomAccess& disk) {
    std::string kind = kindOfVolume(disk);
    return kind.empty() && hasBootSignature(disk) ? kindsOfParts(disk) : kind;
}

} // namespace corvane
