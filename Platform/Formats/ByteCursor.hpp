#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace corvane {

/// Reads a buffer from front to back. Every read goes through `bytes`, which compares with what is left first, so no
/// read passes the end. Does not own the buffer.
class ByteCursor {
  public:
    /// @param format how errors call the data, for example "xar"
    /// @param base offset of the buffer in the file, for errors
    ByteCursor(std::string_view buffer, std::string_view format, std::uint64_t base = 0)
        : buffer_(buffer), format_(format), base_(base) {}

    /// The next bytes. @throws FormatError when fewer are left
    std::string_view bytes(std::size_t count);
    void skip(std::size_t count) { bytes(count); }

    std::uint8_t u8();
    std::uint16_t u16BigEndian();
    std::uint32_t u32BigEndian();
    std::uint64_t u64BigEndian();
    std::uint16_t u16LittleEndian();
    std::uint32_t u32LittleEndian();
    std::uint64_t u64LittleEndian();
    /// A number of `digits` characters in base 8, 10 or 16, the whole field consumed. @throws FormatError
    std::uint64_t number(std::size_t digits, int base);

    /// Reads and compares. @throws FormatError naming both when they differ
    void expect(std::string_view magic);

    /// Offset of the next byte, counted from the start of the file.
    std::uint64_t offset() const { return base_ + position_; }
    std::size_t remaining() const { return buffer_.size() - position_; }

    /// Fails at the current offset.
    [[noreturn]] void fail(std::string_view problem) const;

  private:
    template <class Integer>
    Integer integer(bool bigEndian);

    std::string_view buffer_;
    std::string_view format_;
    std::uint64_t base_;
    std::size_t position_ = 0;
};

} // namespace corvane
