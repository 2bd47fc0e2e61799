#pragma once

#include "Platform/Formats/RandomAccess.hpp"
#include "Platform/Formats/Udif/BlockTable.hpp"
#include "Platform/Formats/Udif/ChunkCache.hpp"

#include <atomic>
#include <span>
#include <string>
#include <vector>

namespace corvane::Udif {

/// The disk that chunks make up, each decoded where it is read. While it is read from front to back, the chunks that
/// come next are decoded in the background.
class ChunkedDisk {
  public:
    /// @param file must outlive this
    /// @param dataFork what the offsets of the chunks count from
    /// @throws FormatError when the chunks leave gaps or overlap, lie outside the file, or share its bytes
    ChunkedDisk(const RandomAccess& file, std::uint64_t dataFork, std::vector<Chunk> chunks);

    std::uint64_t size() const { return size_; }
    const std::vector<Chunk>& chunks() const { return chunks_; }
    /// Fills the buffer; the caller has checked that it ends within the disk. @throws FormatError
    void read(std::uint64_t offset, std::span<char> buffer) const;
    /// The CRC of a compressed chunk's plain bytes. Decodes it only when nobody has read it before. @throws FormatError
    std::uint32_t checksum(std::size_t chunk) const;
    /// Bytes of a raw chunk as they stand in the file.
    void readRaw(const Chunk& chunk, std::uint64_t offset, std::span<char> buffer) const;

  private:
    void readChunk(std::size_t number, std::uint64_t offset, std::span<char> buffer) const;
    void readAhead(std::size_t number) const;
    std::string decode(std::size_t number) const;

    const RandomAccess& file_;
    std::uint64_t dataFork_;
    std::vector<Chunk> chunks_;
    std::uint64_t size_ = 0;
    /// What is known of each chunk: its CRC, and a bit above that says so.
    mutable std::vector<std::atomic<std::uint64_t>> checksums_;
    /// The compressed chunk that was read last.
    mutable std::atomic<std::size_t> last_;
    /// Ends its threads, which use all that is above, first.
    mutable ChunkCache cache_;
};

} // namespace corvane::Udif
