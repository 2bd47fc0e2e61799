#include "Platform/Formats/Udif/ChunkedDisk.hpp"

#include "Platform/Formats/Bzip2/Reader.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Gzip/Inflation.hpp"
#include "Platform/Formats/Lzfse/Lzfse.hpp"
#include "Platform/Formats/Lzma/Reader.hpp"
#include "Platform/Formats/Udif/Adc.hpp"

#include <libdeflate.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace corvane::Udif {
namespace {

constexpr std::uint64_t cacheCapacity = std::uint64_t{24} << 20;
/// How much is decoded in the background, so that it is not dropped again before it is read.
constexpr std::uint64_t aheadLimit = cacheCapacity / 2;
constexpr std::size_t aheadChunkLimit = 64;
/// Chunks that may be left out while a disk still counts as read from front to back.
constexpr std::size_t nearby = 8;

constexpr std::uint64_t isKnown = std::uint64_t{1} << 32;

template <class Reader>
std::string readWhole(std::string_view stored, std::uint64_t size) {
    MemorySource source(stored);
    Reader reader(source);
    std::string plain = readAll(reader, size, "disk image");
    if (plain.size() == size) return plain;
    throw FormatError("expected a chunk of " + std::to_string(size) + " bytes, found " + std::to_string(plain.size()));
}

std::string decodeStored(ChunkKind kind, std::string_view stored, std::uint64_t size) {
    switch (kind) {
    case ChunkKind::adc:
        return decodeAdc(stored, size);
    case ChunkKind::zlib:
        return Gzip::inflated(stored, size);
    case ChunkKind::bzip2:
        return readWhole<Bzip2::Reader>(stored, size);
    case ChunkKind::lzfse:
        return Lzfse::decode(stored, size);
    case ChunkKind::xz:
        return readWhole<Lzma::Reader>(stored, size);
    default:
        throw std::logic_error("only compressed chunks are decoded");
    }
}

/// @param size of the file from the data fork on
/// @param left of it for this chunk and those that follow: a small file that repeats its bytes could take days to
/// decode
void requireStored(const Chunk& chunk, std::uint64_t size, std::uint64_t& left) {
    if (chunk.isEmptySpace()) return;
    const std::string name = "disk image: the chunk of sector " + std::to_string(chunk.firstSector);
    if (chunk.offset > size || chunk.length > size - chunk.offset) throw FormatError(name + " lies outside the file");
    if (chunk.length > left) throw FormatError(name + " shares its bytes with others");
    left -= chunk.length;
}

} // namespace

ChunkedDisk::ChunkedDisk(const RandomAccess& file, std::uint64_t dataFork, std::vector<Chunk> chunks)
    : file_(file),
      dataFork_(dataFork),
      chunks_(std::move(chunks)),
      checksums_(chunks_.size()),
      last_(chunks_.size()),
      cache_(cacheCapacity, [this](std::size_t number) { return decode(number); }) {
    std::uint64_t next = 0;
    const std::uint64_t stored = file.size() - std::min(file.size(), dataFork);
    std::uint64_t left = stored;
    for (const Chunk& chunk : chunks_) {
        if (chunk.firstSector != next || next > sectorLimit) {
            throw FormatError("disk image: expected a chunk from sector " + std::to_string(next) + ", found one from " +
                              std::to_string(chunk.firstSector));
        }
        requireStored(chunk, stored, left);
        next += chunk.sectorCount;
    }
    size_ = next * sectorSize;
}

void ChunkedDisk::read(std::uint64_t offset, std::span<char> buffer) const {
    auto chunk = std::upper_bound(chunks_.begin(), chunks_.end(), offset,
                                  [](std::uint64_t place, const Chunk& item) { return place < item.start(); });
    while (!buffer.empty()) {
        const Chunk& current = *(chunk - 1);
        const std::uint64_t within = offset - current.start();
        const std::size_t count = std::min<std::uint64_t>(buffer.size(), current.size() - within);
        readChunk(static_cast<std::size_t>(chunk - 1 - chunks_.begin()), within, buffer.first(count));
        buffer = buffer.subspan(count);
        offset += count;
        ++chunk;
    }
}

void ChunkedDisk::readChunk(std::size_t number, std::uint64_t offset, std::span<char> buffer) const {
    const Chunk& chunk = chunks_[number];
    if (chunk.isEmptySpace()) {
        std::fill(buffer.begin(), buffer.end(), '\0');
    } else if (chunk.kind == ChunkKind::raw) {
        readRaw(chunk, offset, buffer);
    } else {
        const std::size_t previous = last_.exchange(number);
        if (number > previous && number - previous <= nearby) readAhead(number);
        const auto bytes = cache_.find(number, chunk.size());
        std::memcpy(buffer.data(), bytes->data() + offset, buffer.size());
    }
}

void ChunkedDisk::readAhead(std::size_t number) const {
    const std::size_t end = std::min(chunks_.size(), number + 1 + aheadChunkLimit);
    std::uint64_t room = aheadLimit;
    for (std::size_t next = number + 1; next < end; ++next) {
        const Chunk& chunk = chunks_[next];
        if (!chunk.isCompressed()) continue;
        if (chunk.size() > room) return;
        room -= chunk.size();
        cache_.prepare(next, chunk.size());
    }
}

void ChunkedDisk::readRaw(const Chunk& chunk, std::uint64_t offset, std::span<char> buffer) const {
    file_.read(dataFork_ + chunk.offset + offset, buffer);
}

std::uint32_t ChunkedDisk::checksum(std::size_t chunk) const {
    if (checksums_[chunk] == 0) decode(chunk);
    return static_cast<std::uint32_t>(checksums_[chunk]);
}

std::string ChunkedDisk::decode(std::size_t number) const {
    const Chunk& chunk = chunks_[number];
    std::string stored(chunk.length, '\0');
    file_.read(dataFork_ + chunk.offset, stored);
    try {
        std::string plain = decodeStored(chunk.kind, stored, chunk.size());
        checksums_[number] = isKnown | libdeflate_crc32(0, plain.data(), plain.size());
        return plain;
    } catch (const FormatError& error) {
        throw FormatError("disk image: the chunk of sector " + std::to_string(chunk.firstSector) +
                          " is damaged: " + error.what());
    }
}

} // namespace corvane::Udif
