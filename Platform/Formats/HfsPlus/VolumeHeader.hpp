#pragma once

#include "Platform/Formats/ByteCursor.hpp"
#include "Platform/Formats/RandomAccess.hpp"

#include <array>
#include <cstdint>

namespace corvane::HfsPlus {

/// Numbers of the items that every volume has.
namespace Numbers {
constexpr std::uint32_t root = 2;
constexpr std::uint32_t extents = 3;
constexpr std::uint32_t catalog = 4;
constexpr std::uint32_t allocation = 6;
constexpr std::uint32_t startup = 7;
constexpr std::uint32_t attributes = 8;
} // namespace Numbers

/// A run of blocks.
struct Extent {
    std::uint32_t start = 0;
    std::uint32_t count = 0;
};

/// As many as one record holds; those not used have no blocks and stand last.
using ExtentRecord = std::array<Extent, 8>;

/// What a file's record says of one of its forks.
struct ForkRecord {
    /// In bytes.
    std::uint64_t size = 0;
    /// In blocks, of all extents wherever they are recorded.
    std::uint32_t blocks = 0;
    ExtentRecord extents;
};

ExtentRecord readExtents(ByteCursor& cursor);
ForkRecord readFork(ByteCursor& cursor);

/// The first things known of a volume.
struct VolumeHeader {
    /// Where the volume begins on the disk, in bytes: behind 0 when an older volume is wrapped round it.
    std::uint64_t offset = 0;
    bool isJournaled = false;
    /// In bytes, a power of two.
    std::uint32_t blockSize = 0;
    std::uint32_t blocks = 0;
    ForkRecord allocation;
    ForkRecord extents;
    ForkRecord catalog;
    ForkRecord attributes;
    ForkRecord startup;

    /// Whether a disk has such a volume, whole or damaged.
    static bool isRecognized(const RandomAccess& disk);
    /// @throws FormatError
    static VolumeHeader read(const RandomAccess& disk);
};

} // namespace corvane::HfsPlus
