#pragma once

#include "Platform/Formats/ByteCursor.hpp"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace corvane::Apfs {

/// How errors call the format.
constexpr std::string_view formatName = "APFS";

/// Bytes with little-endian fields at fixed offsets. Does not own them. Everything that reads throws FormatError for
/// what passes their end.
class Record {
  public:
    Record() = default;
    /// @param place offset of the bytes on the disk, for errors
    Record(std::string_view bytes, std::uint64_t place) : bytes_(bytes), place_(place) {}

    std::uint8_t u8(std::size_t offset) const { return at(offset).u8(); }
    std::uint16_t u16(std::size_t offset) const { return at(offset).u16LittleEndian(); }
    std::uint32_t u32(std::size_t offset) const { return at(offset).u32LittleEndian(); }
    std::uint64_t u64(std::size_t offset) const { return at(offset).u64LittleEndian(); }
    std::string_view bytes(std::size_t offset, std::size_t count) const { return at(offset).bytes(count); }
    Record part(std::size_t offset, std::size_t count) const { return {bytes(offset, count), place_ + offset}; }
    /// The text of a field that a NUL ends and that holds nothing behind it.
    std::string_view text(std::size_t offset, std::size_t count) const {
        const std::string_view field = bytes(offset, count);
        if (count == 0 || field.find('\0') != count - 1)
            fail("expected a text of " + std::to_string(count) + " bytes with its NUL");
        return field.substr(0, count - 1);
    }

    std::size_t size() const { return bytes_.size(); }
    std::uint64_t place() const { return place_; }
    [[noreturn]] void fail(std::string_view problem) const { at(0).fail(problem); }

  private:
    ByteCursor at(std::size_t offset) const {
        ByteCursor cursor(bytes_, formatName, place_);
        cursor.skip(offset);
        return cursor;
    }

    std::string_view bytes_;
    std::uint64_t place_ = 0;
};

} // namespace corvane::Apfs
