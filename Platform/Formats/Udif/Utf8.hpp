#pragma once

#include <string>

namespace corvane::Udif {

/// Appends a scalar; what is none becomes U+FFFD.
inline void appendUtf8(std::string& text, char32_t scalar) {
    if (scalar > 0x10FFFF || (scalar >= 0xD800 && scalar < 0xE000)) scalar = 0xFFFD;
    const auto tail = [&](unsigned shift) { text += static_cast<char>(0x80 | (scalar >> shift & 0x3F)); };
    if (scalar < 0x80) {
        text += static_cast<char>(scalar);
    } else if (scalar < 0x800) {
        text += static_cast<char>(0xC0 | scalar >> 6);
        tail(0);
    } else if (scalar < 0x10000) {
        text += static_cast<char>(0xE0 | scalar >> 12);
        tail(6);
        tail(0);
    } else {
        text += static_cast<char>(0xF0 | scalar >> 18);
        tail(12);
        tail(6);
        tail(0);
    }
}

} // namespace corvane::Udif
