#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::Udif {

/// Disks are counted in sectors of 512 bytes.
constexpr std::uint64_t sectorSize = 512;
/// More than any disk has, so that sectors in bytes never overflow.
constexpr std::uint64_t sectorLimit = std::uint64_t{1} << 50;
/// Most plain bytes of a compressed chunk. Makers use 1 MiB.
constexpr std::uint64_t chunkLimit = std::uint64_t{32} << 20;

/// How a run of sectors is stored, as tables number it.
enum class ChunkKind : std::uint32_t {
    zero = 0,
    raw = 1,
    /// Free space: read as zeros, and left out of checksums.
    ignore = 2,
    adc = 0x80000004,
    zlib = 0x80000005,
    bzip2 = 0x80000006,
    lzfse = 0x80000007,
    xz = 0x80000008,
    comment = 0x7FFFFFFE,
    end = 0xFFFFFFFF,
};

struct Chunk {
    ChunkKind kind = ChunkKind::zero;
    /// From the start of the disk.
    std::uint64_t firstSector = 0;
    std::uint64_t sectorCount = 0;
    /// Of the stored bytes, from the start of the data fork.
    std::uint64_t offset = 0;
    std::uint64_t length = 0;

    std::uint64_t start() const { return firstSector * sectorSize; }
    std::uint64_t size() const { return sectorCount * sectorSize; }
    bool isEmptySpace() const { return kind == ChunkKind::zero || kind == ChunkKind::ignore; }
    bool isCompressed() const { return kind != ChunkKind::raw && !isEmptySpace(); }
};

/// A checksum as trailers and tables hold it.
struct Checksum {
    std::uint32_t type = 0;
    std::uint32_t value = 0;

    static constexpr std::uint32_t none = 0;
    static constexpr std::uint32_t crc32 = 2;
    /// Bytes of one, most of them unused.
    static constexpr std::size_t size = 136;
    /// @param bytes `size` bytes
    static Checksum read(std::string_view bytes);
};

/// The chunks of one part of the disk, in the order of their sectors and without a gap.
struct BlockTable {
    std::string name;
    std::uint64_t firstSector = 0;
    std::uint64_t sectorCount = 0;
    Checksum checksum;
    /// Without comments, the end and chunks of no sectors.
    std::vector<Chunk> chunks;

    /// @throws FormatError also for gaps and overlaps of chunks, and unknown kinds
    static BlockTable parse(std::string_view bytes, std::string name);
};

} // namespace corvane::Udif
