#include "Platform/Formats/HfsPlus/VolumeHeader.hpp"

#include "Platform/Formats/FormatError.hpp"

#include <bit>
#include <string>

namespace corvane::HfsPlus {
namespace {

constexpr std::string_view format = "hfsplus";
constexpr std::uint64_t headerOffset = 1024;
constexpr std::size_t headerSize = 512;
constexpr std::uint32_t journaledBit = 0x2000;
constexpr std::uint32_t smallestBlock = 512;
constexpr std::uint64_t sectorSize = 512;

std::string headerAt(const RandomAccess& disk, std::uint64_t offset) {
    std::string bytes(headerSize, '\0');
    disk.read(offset + headerOffset, bytes);
    return bytes;
}

/// The older kind of volume names the place of the newer one: its own blocks are counted from a sector of their own.
std::uint64_t wrappedOffset(const std::string& bytes) {
    const std::string_view view = bytes;
    const std::uint64_t blockSize = ByteCursor(view.substr(20), format, headerOffset + 20).u32BigEndian();
    const std::uint64_t firstSector = ByteCursor(view.substr(28), format, headerOffset + 28).u16BigEndian();
    ByteCursor embedded(view.substr(124), format, headerOffset + 124);
    if (embedded.bytes(2) != "H+") throw FormatError("hfsplus: a volume of the older kind (HFS) is not supported");
    return firstSector * sectorSize + embedded.u16BigEndian() * blockSize;
}

void readSignature(ByteCursor& cursor) {
    const std::string_view signature = cursor.bytes(2);
    if (signature != "H+" && signature != "HX") {
        cursor.fail("expected the signature H+ or HX, found \"" + std::string(signature) + "\"");
    }
    const std::uint16_t version = cursor.u16BigEndian();
    if (version != 4 && version != 5) {
        cursor.fail("expected the version 4 or 5, found " + std::to_string(version));
    }
}

} // namespace

ExtentRecord readExtents(ByteCursor& cursor) {
    ExtentRecord extents;
    for (Extent& each : extents) {
        each.start = cursor.u32BigEndian();
        each.count = cursor.u32BigEndian();
    }
    return extents;
}

ForkRecord readFork(ByteCursor& cursor) {
    ForkRecord fork;
    fork.size = cursor.u64BigEndian();
    cursor.skip(4);
    fork.blocks = cursor.u32BigEndian();
    fork.extents = readExtents(cursor);
    return fork;
}

bool VolumeHeader::isRecognized(const RandomAccess& disk) {
    if (disk.size() < headerOffset + headerSize) return false;
    const std::string bytes = headerAt(disk, 0);
    const std::string signature = bytes.substr(0, 2);
    return signature == "H+" || signature == "HX" || (signature == "BD" && bytes.substr(124, 2) == "H+");
}

VolumeHeader VolumeHeader::read(const RandomAccess& disk) {
    VolumeHeader header;
    std::string bytes = headerAt(disk, 0);
    if (bytes.starts_with("BD")) {
        header.offset = wrappedOffset(bytes);
        bytes = headerAt(disk, header.offset);
    }
    ByteCursor cursor(bytes, format, header.offset + headerOffset);
    readSignature(cursor);
    header.isJournaled = (cursor.u32BigEndian() & journaledBit) != 0;
    cursor.skip(32);
    header.blockSize = cursor.u32BigEndian();
    if (header.blockSize < smallestBlock || !std::has_single_bit(header.blockSize)) {
        cursor.fail("expected blocks of a power of two from 512 on, found " + std::to_string(header.blockSize));
    }
    header.blocks = cursor.u32BigEndian();
    cursor.skip(64);
    for (ForkRecord* each :
         {&header.allocation, &header.extents, &header.catalog, &header.attributes, &header.startup}) {
        *each = readFork(cursor);
    }
    return header;
}

} // namespace corvane::HfsPlus
