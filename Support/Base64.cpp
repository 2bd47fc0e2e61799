#include "Support/Base64.hpp"

#include <cstddef>
#include <cstdint>

namespace corvane::Base64 {
namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::string_view whiteSpace = " \t\r\n";

/// Four characters, of which the last `padding` are "=", are 3 - padding bytes.
bool decodeGroup(std::string_view group, std::string& bytes) {
    const std::size_t padding = group[3] != '=' ? 0 : group[2] != '=' ? 1 : 2;
    std::uint32_t bits = 0;
    for (std::size_t index = 0; index < 4; ++index) {
        const std::size_t value = index < 4 - padding ? alphabet.find(group[index]) : 0;
        if (value == std::string_view::npos) return false;
        bits = (bits << 6) | static_cast<std::uint32_t>(value);
    }
    if ((bits & ((1U << (8 * padding)) - 1)) != 0) return false;
    for (std::size_t index = 0; index < 3 - padding; ++index)
        bytes += static_cast<char>((bits >> (16 - 8 * index)) & 255);
    return true;
}

} // namespace

std::string encoded(std::string_view bytes) {
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        const std::string_view group = bytes.substr(at, 3);
        std::uint32_t bits = 0;
        for (std::size_t index = 0; index < 3; ++index) {
            bits = (bits << 8) | (index < group.size() ? static_cast<unsigned char>(group[index]) : 0U);
        }
        for (std::size_t index = 0; index < 4; ++index) {
            text += index <= group.size() ? alphabet[(bits >> (18 - 6 * index)) & 63] : '=';
        }
    }
    return text;
}

std::optional<std::string> decoded(std::string_view text) {
    std::string bytes;
    std::string group;
    bool padded = false;
    for (const char character : text) {
        if (whiteSpace.find(character) != std::string_view::npos) continue;
        group += character;
        if (group.size() < 4) continue;
        if (padded || !decodeGroup(group, bytes)) return std::nullopt;
        padded = character == '=';
        group.clear();
    }
    if (!group.empty()) return std::nullopt;
    return bytes;
}

} // namespace corvane::Base64
