#pragma once

#include "Support/FileURL.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace corvane {

/// Bytes that are read from front to back, once. Decoders are sources over sources, so a chain of them holds no more
/// than its buffers. What is broken in the bytes is thrown where it is met, at the latest by the read that ends the
/// source; whoever stops before that has not checked the rest.
class ByteSource {
  public:
    ByteSource() = default;
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;
    virtual ~ByteSource() = default;

    /// Puts some of the next bytes at the front of the buffer, which is not empty, and returns how many; 0 is the end.
    virtual std::size_t read(std::span<char> buffer) = 0;
};

/// Size of the buffers between sources and files, in bytes.
constexpr std::size_t sourceBufferSize = std::size_t{1} << 18;

/// A part of an open file. Does not own the descriptor and does not move its position.
class FileRange : public ByteSource {
  public:
    /// @param name for errors
    FileRange(int descriptor, FileURL name, std::uint64_t offset, std::uint64_t length)
        : descriptor_(descriptor), name_(std::move(name)), offset_(offset), left_(length) {}

    /// @throws FileError; FormatError when the file ends before the range does
    std::size_t read(std::span<char> buffer) override;

  private:
    int descriptor_;
    FileURL name_;
    std::uint64_t offset_;
    std::uint64_t left_;
};

/// Bytes in memory, owned by the caller.
class MemorySource : public ByteSource {
  public:
    explicit MemorySource(std::string_view bytes) : rest_(bytes) {}
    std::size_t read(std::span<char> buffer) override;

  private:
    std::string_view rest_;
};

/// A source whose first bytes can be looked at before they are read.
class PeekingSource : public ByteSource {
  public:
    /// Reads up to `count` bytes ahead. @param inner must outlive this source
    PeekingSource(ByteSource& inner, std::size_t count);
    /// The bytes read ahead and not yet read again; fewer than were asked for when the source is shorter.
    std::string_view front() const { return std::string_view(front_).substr(position_); }
    std::size_t read(std::span<char> buffer) override;

  private:
    ByteSource& inner_;
    std::string front_;
    std::size_t position_ = 0;
};

/// Fills the buffer as far as the source lasts; the number of bytes is less than its size only at the end.
std::size_t readFully(ByteSource& source, std::span<char> buffer);

/// Everything that is left. @throws FormatError when that is more than `limit` bytes
std::string readAll(ByteSource& source, std::size_t limit, std::string_view format);

} // namespace corvane
