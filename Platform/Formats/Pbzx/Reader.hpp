#pragma once

#include "Platform/Formats/BufferPool.hpp"

#include <cstdint>
#include <deque>
#include <exception>
#include <memory>
#include <optional>

namespace corvane::Pbzx {

class Chunk;

/// Expands a pbzx stream, several chunks at once in threads of their own, ahead of what is read. Bytes and errors are
/// the same whatever the number of threads. The encoded source is read in calls of `read` only, a chunk at a time. Each
/// thread holds about a block and a dictionary, 24 MiB for what the package tools write.
class Reader : public ByteSource {
  public:
    /// Reads the stream's header. @param encoded must outlive the reader
    /// @param threads chunks to expand at once; 0 for one a processor
    explicit Reader(ByteSource& encoded, unsigned threads = 0);
    ~Reader() override;

    /// @throws FormatError, and what the encoded source throws
    std::size_t read(std::span<char> buffer) override;

  private:
    struct Header {
        std::uint64_t decodedSize;
        std::uint64_t storedSize;
    };
    struct Part {
        std::uint64_t offset;
        std::unique_ptr<Chunk> chunk;
    };

    void startChunks();
    bool readHeader();
    bool hasRoom();
    void startChunk();

    ByteSource& encoded_;
    std::size_t threadCount_;
    std::uint64_t blockSize_ = 0;
    /// Buffers to expand ahead in each chunk.
    std::size_t depth_ = 0;
    /// Of the next chunk, in the encoded source.
    std::uint64_t offset_ = 0;
    /// That chunk's header, once it was read.
    std::optional<Header> next_;
    bool ended_ = false;
    /// What was met behind the chunks that are being expanded.
    std::exception_ptr failure_;
    BufferPool pool_;
    std::deque<Part> parts_;
};

} // namespace corvane::Pbzx
