#include "Platform/Formats/ByteCursor.hpp"

#include "Platform/Formats/FormatError.hpp"

#include <charconv>

namespace corvane {

std::string_view ByteCursor::bytes(std::size_t count) {
    if (count > remaining()) {
        fail("expected " + std::to_string(count) + " more bytes, found " + std::to_string(remaining()));
    }
    const std::string_view found = buffer_.substr(position_, count);
    position_ += count;
    return found;
}

template <class Integer>
Integer ByteCursor::integer(bool bigEndian) {
    const std::string_view field = bytes(sizeof(Integer));
    std::uint64_t value = 0;
    for (std::size_t index = 0; index < field.size(); ++index) {
        const std::size_t at = bigEndian ? index : field.size() - 1 - index;
        value = (value << 8) | static_cast<unsigned char>(field[at]);
    }
    return static_cast<Integer>(value);
}

std::uint8_t ByteCursor::u8() { return integer<std::uint8_t>(true); }
std::uint16_t ByteCursor::u16BigEndian() { return integer<std::uint16_t>(true); }
std::uint32_t ByteCursor::u32BigEndian() { return integer<std::uint32_t>(true); }
std::uint64_t ByteCursor::u64BigEndian() { return integer<std::uint64_t>(true); }
std::uint16_t ByteCursor::u16LittleEndian() { return integer<std::uint16_t>(false); }
std::uint32_t ByteCursor::u32LittleEndian() { return integer<std::uint32_t>(false); }
std::uint64_t ByteCursor::u64LittleEndian() { return integer<std::uint64_t>(false); }

std::uint64_t ByteCursor::number(std::size_t digits, int base) {
    const std::string_view field = bytes(digits);
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), value, base);
    if (error != std::errc() || end != field.data() + field.size()) {
        throw FormatError(format_, offset() - digits,
                          "expected a number in base " + std::to_string(base) + ", found \"" + std::string(field) +
                              "\"");
    }
    return value;
}

void ByteCursor::expect(std::string_view magic) {
    const std::uint64_t start = offset();
    const std::string_view found = bytes(magic.size());
    if (found != magic) {
        throw FormatError(format_, start,
                          "expected \"" + std::string(magic) + "\", found \"" + std::string(found) + "\"");
    }
}

void ByteCursor::fail(std::string_view problem) const { throw FormatError(format_, offset(), problem); }

} // namespace corvane
