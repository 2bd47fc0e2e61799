#include "Platform/Formats/PartitionMap/PartitionMap.hpp"

#include "Platform/Formats/ByteCursor.hpp"
#include "Platform/Formats/Digest.hpp"
#include "Platform/Formats/FormatError.hpp"

#include <algorithm>

namespace corvane::PartitionMap {
namespace {

constexpr std::uint64_t sectorSize = 512;
constexpr std::uint32_t partLimit = 1024;
constexpr std::size_t guidEntrySize = 128;
constexpr const char* format = "partition map";

std::string readBytes(const RandomAccess& disk, std::uint64_t offset, std::size_t count) {
    std::string bytes(count, '\0');
    disk.read(offset, bytes);
    return bytes;
}

Part part(const RandomAccess& disk, std::uint64_t first, std::uint64_t count) {
    const std::uint64_t sectors = disk.size() / sectorSize;
    if (first > sectors || count > sectors - first) {
        throw FormatError(std::string(format) + ": expected a part within " + std::to_string(sectors) +
                          " sectors, found " + std::to_string(count) + " from " + std::to_string(first));
    }
    return {first * sectorSize, count * sectorSize, {}, {}};
}

void requireCount(std::uint32_t count) {
    if (count <= partLimit) return;
    throw FormatError(std::string(format) + ": expected at most 1024 parts, found " + std::to_string(count));
}

std::string untilZero(std::string_view field) { return std::string(field.substr(0, field.find('\0'))); }

/// The first three groups are numbers in little-endian order.
std::string guidText(std::string bytes) {
    std::reverse(bytes.begin(), bytes.begin() + 4);
    std::swap(bytes[4], bytes[5]);
    std::swap(bytes[6], bytes[7]);
    std::string text = hexadecimal(bytes);
    for (const std::size_t dash : {8U, 13U, 18U, 23U}) text.insert(dash, "-");
    for (char& digit : text) {
        if (digit >= 'a') digit = static_cast<char>(digit - 'a' + 'A');
    }
    return text;
}

/// Names are UTF-16; the ASCII ones of images are kept, and "?" for the rest is enough for display.
std::string guidName(ByteCursor& cursor) {
    std::string name;
    for (int left = 36; left > 0; --left) {
        const std::uint16_t unit = cursor.u16LittleEndian();
        if (unit == 0) break;
        name += unit < 0x80 ? static_cast<char>(unit) : '?';
    }
    return name;
}

Map readGuidMap(const RandomAccess& disk, const std::string& header) {
    constexpr std::size_t entriesAt = 72;
    ByteCursor cursor(std::string_view(header).substr(entriesAt), format, sectorSize + entriesAt);
    const std::uint64_t start = cursor.u64LittleEndian();
    const std::uint32_t count = cursor.u32LittleEndian();
    const std::uint32_t size = cursor.u32LittleEndian();
    requireCount(count);
    if (size < guidEntrySize || size > sectorSize) cursor.fail("expected entries of 128 to 512 bytes, found others");
    const Part place = part(disk, start, (std::uint64_t{count} * size + sectorSize - 1) / sectorSize);
    Map map{Scheme::guid, {}};
    for (std::uint32_t index = 0; index < count; ++index) {
        const std::uint64_t offset = place.offset + std::uint64_t{index} * size;
        const std::string bytes = readBytes(disk, offset, guidEntrySize);
        ByteCursor entry(bytes, format, offset);
        const std::string type(entry.bytes(16));
        if (type == std::string(16, '\0')) continue;
        entry.skip(16); // the part's own identifier
        const std::uint64_t first = entry.u64LittleEndian();
        const std::uint64_t last = entry.u64LittleEndian();
        if (last < first) entry.fail("expected a last sector behind the first, found another");
        Part found = part(disk, first, last - first + (last != UINT64_MAX ? 1 : 0));
        entry.skip(8); // attributes
        found.type = guidText(type);
        found.name = guidName(entry);
        map.parts.push_back(std::move(found));
    }
    return map;
}

Map readAppleMap(const RandomAccess& disk) {
    Map map{Scheme::apple, {}};
    std::uint32_t count = 1;
    for (std::uint32_t index = 0; index < count; ++index) {
        const std::uint64_t offset = (index + 1) * sectorSize;
        const std::string bytes = readBytes(disk, offset, sectorSize);
        ByteCursor entry(bytes, format, offset);
        entry.expect("PM");
        entry.skip(2);
        count = entry.u32BigEndian();
        requireCount(count);
        const std::uint32_t first = entry.u32BigEndian();
        Part found = part(disk, first, entry.u32BigEndian());
        found.name = untilZero(entry.bytes(32));
        found.type = untilZero(entry.bytes(32));
        if (found.size != 0) map.parts.push_back(std::move(found));
    }
    return map;
}

} // namespace

std::string_view schemeName(Scheme scheme) {
    if (scheme == Scheme::guid) return "GUID_partition_scheme";
    return scheme == Scheme::apple ? "Apple_partition_scheme" : "";
}

Map read(const RandomAccess& disk) {
    if (disk.size() >= 2 * sectorSize) {
        const std::string sector = readBytes(disk, sectorSize, sectorSize);
        if (sector.starts_with("EFI PART")) return readGuidMap(disk, sector);
        if (sector.starts_with("PM")) return readAppleMap(disk);
    }
    return {Scheme::none, {{0, disk.size(), {}, {}}}};
}

} // namespace corvane::PartitionMap
