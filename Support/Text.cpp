#include "Support/Text.hpp"

#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>

namespace corvane::Text {
namespace {

constexpr char32_t replacement = 0xFFFD;

struct Decoded {
    char32_t scalar;
    std::size_t length; ///< bytes consumed, at least 1
    bool valid;
};

/// Decodes the scalar at the front. An invalid sequence consumes its longest prefix that could still have become
/// valid, as the Unicode standard recommends for replacement.
Decoded decodeFront(std::string_view bytes) {
    const auto byte = [&](std::size_t index) { return static_cast<unsigned char>(bytes[index]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80) return {lead, 1, true};
    std::size_t length = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) low = 0xA0;
        if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
    } else {
        return {replacement, 1, false};
    }
    char32_t scalar = lead & (0x7FU >> length);
    for (std::size_t index = 1; index < length; ++index) {
        if (index >= bytes.size() || byte(index) < low || byte(index) > high) return {replacement, index, false};
        scalar = (scalar << 6) | (byte(index) & 0x3FU);
        low = 0x80;
        high = 0xBF;
    }
    return {scalar, length, true};
}

void append(std::string& text, char32_t scalar) {
    std::array<utf8proc_uint8_t, 4> bytes{};
    const auto length = utf8proc_encode_char(static_cast<utf8proc_int32_t>(scalar), bytes.data());
    text.append(reinterpret_cast<const char*>(bytes.data()), static_cast<std::size_t>(length));
}

utf8proc_category_t category(char32_t scalar) { return utf8proc_category(static_cast<utf8proc_int32_t>(scalar)); }

bool isWhitespace(char32_t scalar) { return scalar == '\t' || category(scalar) == UTF8PROC_CATEGORY_ZS; }

bool isWhitespaceOrNewline(char32_t scalar) {
    if ((scalar >= 0x09 && scalar <= 0x0D) || scalar == 0x85) return true;
    const auto found = category(scalar);
    return found == UTF8PROC_CATEGORY_ZS || found == UTF8PROC_CATEGORY_ZL || found == UTF8PROC_CATEGORY_ZP;
}

bool isLineBreak(char32_t scalar) {
    return (scalar >= 0x0A && scalar <= 0x0D) || scalar == 0x85 || scalar == 0x2028 || scalar == 0x2029;
}

std::string trimming(std::string_view text, bool (*isTrimmed)(char32_t)) {
    std::size_t start = text.size();
    std::size_t end = 0;
    for (std::size_t at = 0; at < text.size();) {
        const Decoded decoded = decodeFront(text.substr(at));
        if (!isTrimmed(decoded.scalar)) {
            start = std::min(start, at);
            end = at + decoded.length;
        }
        at += decoded.length;
    }
    return start < end ? std::string(text.substr(start, end - start)) : "";
}

std::string composed(std::string_view text) {
    utf8proc_uint8_t* mapped = nullptr;
    const std::string valid = decodedUTF8(text);
    const auto length = utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(valid.data()),
                                     static_cast<utf8proc_ssize_t>(valid.size()), &mapped,
                                     static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE));
    const std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owner(mapped, &std::free);
    if (length < 0) return valid;
    return {reinterpret_cast<const char*>(mapped), static_cast<std::size_t>(length)};
}

} // namespace

std::string decodedUTF8(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    std::size_t copied = 0; // what lies before is in the text; valid bytes are copied a run at a time
    for (std::size_t at = 0; at < bytes.size();) {
        const Decoded decoded = decodeFront(bytes.substr(at));
        if (!decoded.valid) {
            text.append(bytes.substr(copied, at - copied));
            append(text, replacement);
            copied = at + decoded.length;
        }
        at += decoded.length;
    }
    return text.append(bytes.substr(copied));
}

std::string printable(std::string_view text) {
    std::string result;
    for (const char32_t scalar : scalars(text)) {
        append(result, category(scalar) == UTF8PROC_CATEGORY_CC ? replacement : scalar);
    }
    return result;
}

std::string trimmingWhitespace(std::string_view text) { return trimming(text, &isWhitespace); }

std::string trimmingWhitespaceAndNewlines(std::string_view text) { return trimming(text, &isWhitespaceOrNewline); }

std::string lowercased(std::string_view text) {
    std::string result;
    for (const char32_t scalar : scalars(text)) {
        append(result, static_cast<char32_t>(utf8proc_tolower(static_cast<utf8proc_int32_t>(scalar))));
    }
    return result;
}

bool isAlphanumeric(char32_t scalar) {
    const auto found = category(scalar);
    return found >= UTF8PROC_CATEGORY_LU && found <= UTF8PROC_CATEGORY_NO;
}

std::vector<char32_t> scalars(std::string_view text) {
    std::vector<char32_t> result;
    result.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const Decoded decoded = decodeFront(text.substr(at));
        result.push_back(decoded.scalar);
        at += decoded.length;
    }
    return result;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    for (std::size_t start = 0; start < text.size();) {
        const auto end = std::min(text.find(separator, start), text.size());
        if (end > start) pieces.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return pieces;
}

bool canonicallyPrecedes(std::string_view left, std::string_view right) { return composed(left) < composed(right); }

bool canonicallyEqual(std::string_view left, std::string_view right) {
    return left == right || composed(left) == composed(right);
}

void sortCanonically(std::vector<std::string>& texts) {
    std::vector<std::pair<std::string, std::string>> keyed;
    for (std::string& text : texts) keyed.emplace_back(composed(text), std::move(text));
    std::stable_sort(keyed.begin(), keyed.end(),
                     [](const auto& left, const auto& right) { return left.first < right.first; });
    for (std::size_t index = 0; index < texts.size(); ++index) texts[index] = std::move(keyed[index].second);
}

std::optional<std::string_view> CharacterReader::next() {
    if (rest_.empty()) return std::nullopt;
    utf8proc_int32_t state = 0;
    Decoded current = decodeFront(rest_);
    std::size_t length = current.length;
    while (length < rest_.size()) {
        const Decoded following = decodeFront(rest_.substr(length));
        if (utf8proc_grapheme_break_stateful(static_cast<utf8proc_int32_t>(current.scalar),
                                             static_cast<utf8proc_int32_t>(following.scalar), &state)) {
            break;
        }
        length += following.length;
        current = following;
    }
    const std::string_view character = rest_.substr(0, length);
    rest_.remove_prefix(length);
    return character;
}

std::string firstLine(std::string_view text) {
    std::size_t start = text.size();
    for (std::size_t at = 0; at < text.size();) {
        const Decoded decoded = decodeFront(text.substr(at));
        if (isLineBreak(decoded.scalar)) {
            if (start < at) return std::string(text.substr(start, at - start));
        } else {
            start = std::min(start, at);
        }
        at += decoded.length;
    }
    return std::string(start < text.size() ? text.substr(start) : text);
}

std::optional<std::string> firstMatchValue(std::string_view text, std::string_view prefix) {
    for (const std::string_view line : split(text, '\n')) {
        if (line.starts_with(prefix)) return std::string(line.substr(prefix.size()));
    }
    return std::nullopt;
}

} // namespace corvane::Text
