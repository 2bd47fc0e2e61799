#pragma once

#include "Platform/Formats/RandomAccess.hpp"
#include "Platform/Formats/Udif/BlockTable.hpp"
#include "Platform/Formats/Udif/ChunkCache.hpp"

#include <span>
#include <string>
#include <vector>

namespace corvane::Udif {

/// The disk that chunks make up, each decoded where it is read.
class ChunkedDisk {
  public:
    /// @param file must outlive this
    /// @param dataFork what the offsets of the chunks count from
    /// @throws FormatError when the chunks leave gaps or overlap, or lie outside the file
    ChunkedDisk(const RandomAccess& file, std::uint64_t dataFork, std::vector<Chunk> chunks);

    std::uint64_t size() const { return size_; }
    const std::vector<Chunk>& chunks() const { return chunks_; }
    /// Fills the buffer; the caller has checked that it ends within the disk. @throws FormatError
    void read(std::uint64_t offset, std::span<char> buffer) const;
    /// The plain bytes of a compressed chunk, past the cache. @throws FormatError
    std::string decode(const Chunk& chunk) const;
    /// Bytes of a raw chunk as they stand in the file.
    void readRaw(const Chunk& chunk, std::uint64_t offset, std::span<char> buffer) const;

  private:
    void readChunk(std::size_t number, std::uint64_t offset, std::span<char> buffer) const;

    const RandomAccess& file_;
    std::uint64_t dataFork_;
    std::vector<Chunk> chunks_;
    std::uint64_t size_ = 0;
    mutable ChunkCache cache_;
};

} // namespace corvane::Udif
