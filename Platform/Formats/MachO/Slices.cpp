#include "Platform/Formats/MachO/Slices.hpp"

#include "Platform/Formats/ByteCursor.hpp"

#include <algorithm>

namespace corvane::MachO {
namespace {

constexpr std::uint32_t thinMagic = 0xFEEDFACE;
constexpr std::uint32_t thinMagic64 = 0xFEEDFACF;
/// Headers of fat files have this byte order on every processor.
constexpr std::uint32_t fatMagic = 0xCAFEBABE;
constexpr std::uint32_t fatMagic64 = 0xCAFEBABF;

/// Bytes of the shorter of the two headers that a thin file begins with.
constexpr std::size_t thinHeaderSize = 28;
constexpr std::size_t magicSize = 4;

bool isThin(std::uint32_t magic) { return magic == thinMagic || magic == thinMagic64; }

Slice readSlot(ByteCursor& header, bool isWide) {
    Slice slice;
    slice.cpuType = header.u32BigEndian();
    slice.cpuSubtype = header.u32BigEndian();
    slice.offset = isWide ? header.u64BigEndian() : header.u32BigEndian();
    slice.size = isWide ? header.u64BigEndian() : header.u32BigEndian();
    header.skip(isWide ? 8 : 4); // alignment
    return slice;
}

/// Java classes begin with the same magic; there the count is a version, which has always been greater than the limit.
std::vector<Slice> fatSlices(ByteCursor header, bool isWide, std::uint64_t size) {
    const std::size_t slotSize = isWide ? 32 : 20;
    if (header.remaining() < 4) return {};
    const std::uint32_t count = header.u32BigEndian();
    if (count > sliceLimit || header.remaining() < count * slotSize) return {};
    const std::uint64_t headerEnd = header.offset() + count * slotSize;
    std::vector<Slice> slices;
    for (std::uint32_t index = 0; index < count; ++index) slices.push_back(readSlot(header, isWide));
    const bool isSound = std::all_of(slices.begin(), slices.end(), [&](const Slice& slice) {
        return slice.offset >= headerEnd && slice.offset <= size && slice.size <= size - slice.offset;
    });
    return isSound ? slices : std::vector<Slice>();
}

} // namespace

bool isMachO(std::string_view front) {
    if (front.size() < magicSize) return false;
    ByteCursor bigEndian(front, "Mach-O");
    ByteCursor littleEndian = bigEndian;
    const std::uint32_t magic = bigEndian.u32BigEndian();
    if (isThin(magic) || isThin(littleEndian.u32LittleEndian())) return true;
    const bool isFat = magic == fatMagic || magic == fatMagic64;
    return isFat && bigEndian.remaining() >= 4 && bigEndian.u32BigEndian() <= sliceLimit;
}

std::vector<Slice> slices(std::string_view front, std::uint64_t size) {
    if (front.size() < magicSize) return {};
    ByteCursor bigEndian(front, "Mach-O");
    ByteCursor littleEndian = bigEndian;
    const std::uint32_t magic = bigEndian.u32BigEndian();
    if (magic == fatMagic || magic == fatMagic64) return fatSlices(bigEndian, magic == fatMagic64, size);
    const std::uint32_t swapped = littleEndian.u32LittleEndian();
    if (front.size() < thinHeaderSize || !(isThin(magic) || isThin(swapped))) return {};
    const auto number = [&] { return isThin(magic) ? bigEndian.u32BigEndian() : littleEndian.u32LittleEndian(); };
    Slice slice{.size = size};
    slice.cpuType = number();
    slice.cpuSubtype = number();
    return {slice};
}

} // namespace corvane::MachO
