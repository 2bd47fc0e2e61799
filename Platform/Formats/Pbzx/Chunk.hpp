#pragma once

#include "Platform/Formats/BufferPool.hpp"
#include "Platform/Formats/Lzma/Reader.hpp"
#include "Platform/Formats/ReadAheadSource.hpp"

#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

namespace corvane::Pbzx {

/// Bytes taken out of another source, all at once. Each buffer goes back to the pool when it was read.
class StoredBytes : public ByteSource {
  public:
    /// Memory grows with the bytes that come, not with the length. @throws FormatError when fewer come
    StoredBytes(ByteSource& source, std::uint64_t length, BufferPool& pool);
    ~StoredBytes() override;

    std::size_t read(std::span<char> buffer) override;

  private:
    BufferPool& pool_;
    std::deque<std::vector<char>> buffers_;
    /// In the first buffer, and to the end of the last one.
    std::size_t position_ = 0;
    std::uint64_t left_;
};

/// An xz stream that must expand to a known length. Never gives more.
class ExpandedBytes : public ByteSource {
  public:
    ExpandedBytes(ByteSource& stored, std::uint64_t length) : xz_(stored), left_(length) {}

    std::size_t read(std::span<char> buffer) override;

  private:
    Lzma::Reader xz_;
    std::uint64_t left_;
};

/// One chunk: its stored bytes, and what they expand to in a thread of its own.
class Chunk : public ByteSource {
  public:
    /// Takes the stored bytes out of the source and begins to expand them, unless they are the block itself.
    /// @param pool must outlive the chunk
    /// @param depth buffers to expand ahead of the reader
    Chunk(ByteSource& encoded, std::uint64_t decodedSize, std::uint64_t storedSize, BufferPool& pool,
          std::size_t depth);

    std::size_t read(std::span<char> buffer) override { return ahead_ ? ahead_->read(buffer) : stored_.read(buffer); }

  private:
    StoredBytes stored_;
    std::optional<ExpandedBytes> expanded_;
    std::optional<ReadAheadSource> ahead_;
};

} // namespace corvane::Pbzx
