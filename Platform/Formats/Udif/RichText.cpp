#include "Platform/Formats/Udif/Licence.hpp"
#include "Platform/Formats/Udif/Utf8.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <vector>

namespace corvane::Udif {
namespace {

/// Groups that hold no text of the document.
constexpr std::array<std::string_view, 8> silentGroups{"fonttbl", "colortbl", "stylesheet", "info",
                                                       "pict",    "header",   "footer",     "object"};

bool isLetter(char character) {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
}

/// What most writers declare; from 0x80 to 0x9F it differs from the first scalars of Unicode.
constexpr char32_t westernWindows[] =
    U"\u20AC\uFFFD\u201A\u0192\u201E\u2026\u2020\u2021\u02C6\u2030\u0160\u2039\u0152\uFFFD\u017D\uFFFD"
    U"\uFFFD\u2018\u2019\u201C\u201D\u2022\u2013\u2014\u02DC\u2122\u0161\u203A\u0153\uFFFD\u017E\u0178";

std::string decodedWestern(unsigned char byte) {
    std::string text;
    appendUtf8(text, byte >= 0x80 && byte < 0xA0 ? westernWindows[byte - 0x80] : byte);
    return text;
}

class RichTextReader {
  public:
    explicit RichTextReader(std::string_view document) : rest_(document) {}

    std::string read() {
        while (!rest_.empty()) {
            const char character = take();
            if (character == '{') {
                isSilent_.push_back(isSilent_.back());
            } else if (character == '}') {
                if (isSilent_.size() > 1) isSilent_.pop_back();
            } else if (character == '\\') {
                control();
            } else if (character != '\r' && character != '\n') {
                emit(std::string_view(&character, 1));
            }
        }
        return std::move(text_);
    }

  private:
    char take() {
        const char character = rest_.front();
        rest_.remove_prefix(1);
        return character;
    }

    void emit(std::string_view text) {
        // A character in Unicode is followed by one for readers that know none.
        if (toSkip_ > 0) {
            --toSkip_;
        } else if (!isSilent_.back()) {
            text_ += text;
        }
    }

    void control() {
        if (rest_.empty()) return;
        if (isLetter(rest_.front())) return word();
        const char symbol = take();
        if (symbol == '\'') return hexadecimal();
        if (symbol == '*') isSilent_.back() = true;
        if (symbol == '~') emit("\u00A0");
        if (symbol == '\n' || symbol == '\r') emit("\n");
        if (symbol == '\\' || symbol == '{' || symbol == '}') emit(std::string_view(&symbol, 1));
    }

    void hexadecimal() {
        const std::string_view digits = rest_.substr(0, 2);
        rest_.remove_prefix(digits.size());
        unsigned char byte = 0;
        if (std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16).ec != std::errc()) return;
        const char character = static_cast<char>(byte);
        emit(isMacRoman_ ? decodedMacRoman(std::string_view(&character, 1)) : decodedWestern(byte));
    }

    void word() {
        const auto end = std::find_if_not(rest_.begin(), rest_.end(), isLetter);
        const std::string_view name = rest_.substr(0, static_cast<std::size_t>(end - rest_.begin()));
        rest_.remove_prefix(name.size());
        int number = 0;
        const auto [after, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), number);
        if (error != std::errc::invalid_argument) rest_.remove_prefix(static_cast<std::size_t>(after - rest_.data()));
        if (rest_.starts_with(' ')) rest_.remove_prefix(1);
        obey(name, number);
    }

    void obey(std::string_view name, int number) {
        if (name == "par" || name == "line" || name == "sect" || name == "page") emit("\n");
        if (name == "tab" || name == "cell") emit("\t");
        if (name == "uc") fallbackLength_ = std::clamp(number, 0, 8);
        if (name == "u") unicode(number);
        if (name == "mac") isMacRoman_ = true;
        if (std::find(silentGroups.begin(), silentGroups.end(), name) != silentGroups.end()) isSilent_.back() = true;
    }

    /// Numbers from 0x8000 on are written as negative ones.
    void unicode(int number) {
        std::string text;
        appendUtf8(text, static_cast<char32_t>(number & 0xFFFF));
        toSkip_ = 0;
        emit(text);
        toSkip_ = fallbackLength_;
    }

    std::string_view rest_;
    std::string text_;
    /// One for each open group, and one for the document.
    std::vector<bool> isSilent_{false};
    bool isMacRoman_ = false;
    int toSkip_ = 0;
    int fallbackLength_ = 1;
};

} // namespace

std::string plainTextOfRtf(std::string_view document) { return RichTextReader(document).read(); }

} // namespace corvane::Udif
