#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace corvane {

/// Appends a number of `width` bytes, the most significant one first.
inline void appendBigEndian(std::string& bytes, std::uint64_t value, std::size_t width) {
    for (std::size_t left = width; left > 0; --left) bytes += static_cast<char>(value >> (8 * (left - 1)));
}

} // namespace corvane
