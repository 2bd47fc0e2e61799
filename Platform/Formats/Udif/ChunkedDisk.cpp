#include "Platform/Formats/Udif/ChunkedDisk.hpp"

#include "Platform/Formats/Bzip2/Reader.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Gzip/Reader.hpp"
#include "Platform/Formats/Lzfse/Lzfse.hpp"
#include "Platform/Formats/Lzma/Reader.hpp"
#include "Platform/Formats/Udif/Adc.hpp"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace corvane::Udif {
namespace {

constexpr std::uint64_t cacheCapacity = std::uint64_t{64} << 20;

template <class Reader>
std::string readWhole(std::string_view stored, std::uint64_t size) {
    MemorySource source(stored);
    Reader reader(source);
    std::string plain = readAll(reader, size, "disk image");
    if (plain.size() == size) return plain;
    throw FormatError("expected a chunk of " + std::to_string(size) + " bytes, found " + std::to_string(plain.size()));
}

struct ZlibReader : Gzip::Reader {
    explicit ZlibReader(ByteSource& source) : Reader(source, Gzip::Framing::zlib) {}
};

std::string decodeStored(ChunkKind kind, std::string_view stored, std::uint64_t size) {
    switch (kind) {
    case ChunkKind::adc:
        return decodeAdc(stored, size);
    case ChunkKind::zlib:
        return readWhole<ZlibReader>(stored, size);
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

void requireStored(const Chunk& chunk, std::uint64_t fileSize, std::uint64_t dataFork) {
    if (chunk.isEmptySpace()) return;
    const std::uint64_t room = fileSize - std::min(fileSize, dataFork);
    if (chunk.offset <= room && chunk.length <= room - chunk.offset) return;
    throw FormatError("disk image: the chunk of sector " + std::to_string(chunk.firstSector) +
                      " lies outside the file");
}

} // namespace

ChunkedDisk::ChunkedDisk(const RandomAccess& file, std::uint64_t dataFork, std::vector<Chunk> chunks)
    : file_(file), dataFork_(dataFork), chunks_(std::move(chunks)), cache_(cacheCapacity) {
    std::uint64_t next = 0;
    for (const Chunk& chunk : chunks_) {
        if (chunk.firstSector != next || next > sectorLimit) {
            throw FormatError("disk image: expected a chunk from sector " + std::to_string(next) + ", found one from " +
                              std::to_string(chunk.firstSector));
        }
        requireStored(chunk, file.size(), dataFork);
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
        const auto bytes = cache_.find(number, chunk.size(), [&] { return decode(chunk); });
        std::memcpy(buffer.data(), bytes->data() + offset, buffer.size());
    }
}

void ChunkedDisk::readRaw(const Chunk& chunk, std::uint64_t offset, std::span<char> buffer) const {
    file_.read(dataFork_ + chunk.offset + offset, buffer);
}

std::string ChunkedDisk::decode(const Chunk& chunk) const {
    std::string stored(chunk.length, '\0');
    file_.read(dataFork_ + chunk.offset, stored);
    try {
        return decodeStored(chunk.kind, stored, chunk.size());
    } catch (const FormatError& error) {
        throw FormatError("disk image: the chunk of sector " + std::to_string(chunk.firstSector) +
                          " is damaged: " + error.what());
    }
}

} // namespace corvane::Udif
