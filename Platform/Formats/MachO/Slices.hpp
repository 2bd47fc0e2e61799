#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace corvane::MachO {

/// What a Mach-O file holds for one architecture, at its place in the file.
struct Slice {
    std::uint32_t cpuType = 0;
    std::uint32_t cpuSubtype = 0;
    /// In bytes, never past the end of the file.
    std::uint64_t offset = 0;
    std::uint64_t size = 0;

    bool operator==(const Slice&) const = default;
};

/// More slices than there have ever been processors; a Bom has room for as many.
constexpr std::size_t sliceLimit = 15;
/// How many of a file's first bytes `slices` looks at: a fat header with the widest slots.
constexpr std::size_t headerSize = 8 + 32 * sliceLimit;

/// The slices of a file in the order of its header: several of a fat file, which may overlap; of a thin one the file
/// itself; none of any other file and of one whose header contradicts the file. Slices themselves are not looked into.
/// @param front the first `headerSize` bytes, or the whole of a shorter file
/// @param size bytes of the file
std::vector<Slice> slices(std::string_view front, std::uint64_t size);

/// Whether a file begins as Mach-O files do, whatever stands behind that.
/// @param front as for `slices`
bool isMachO(std::string_view front);

} // namespace corvane::MachO
