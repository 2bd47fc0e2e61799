#include "Platform/Formats/HfsPlus/Name.hpp"

#include <cstdint>

namespace corvane::HfsPlus {
namespace {

bool isHigh(char32_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool isLow(char32_t unit) { return unit >= 0xDC00 && unit < 0xE000; }

void append(std::string& text, char32_t scalar) {
    const int more = scalar < 0x80 ? 0 : scalar < 0x800 ? 1 : scalar < 0x10000 ? 2 : 3;
    constexpr unsigned char leads[]{0x00, 0xC0, 0xE0, 0xF0};
    text += static_cast<char>(leads[more] | (scalar >> (6 * more)));
    for (int left = more; left > 0; --left) text += static_cast<char>(0x80 | ((scalar >> (6 * (left - 1))) & 0x3F));
}

} // namespace

std::string readName(ByteCursor& cursor) {
    std::string name;
    for (std::size_t left = cursor.u16BigEndian(); left > 0; --left) {
        char32_t scalar = cursor.u16BigEndian();
        if (isHigh(scalar) && left > 1) {
            const char32_t low = cursor.u16BigEndian();
            --left;
            if (!isLow(low)) cursor.fail("expected the second half of a character in a name, found another");
            scalar = 0x10000 + ((scalar - 0xD800) << 10) + (low - 0xDC00);
        } else if (isHigh(scalar) || isLow(scalar)) {
            cursor.fail("expected a whole character in a name, found half of one");
        }
        append(name, scalar);
    }
    return name;
}

} // namespace corvane::HfsPlus
