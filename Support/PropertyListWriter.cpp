#include "Support/Base64.hpp"
#include "Support/PropertyList.hpp"
#include "Support/Text.hpp"
#include "Support/UTCTime.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace corvane::PropertyList {
namespace {

constexpr std::size_t lineWidth = 76;
constexpr std::size_t tabWidth = 8;

/// The bytes of a character at the front that XML has no way at all to write, not even as a reference; 0 for others.
std::size_t unwritableLength(std::string_view text) {
    const char byte = text.front();
    if (static_cast<unsigned char>(byte) < 0x20) return byte != '\t' && byte != '\n' && byte != '\r' ? 1 : 0;
    return text.starts_with("\xef\xbf\xbe") || text.starts_with("\xef\xbf\xbf") ? 3 : 0;
}

void requireCharacters(std::string_view text) {
    if (representable(text) != text) {
        throw Error("a text holds characters that XML cannot: " + Text::printable(text.substr(0, 80)));
    }
}

std::string escaped(std::string_view text) {
    requireCharacters(text);
    std::string result;
    for (const char byte : text) {
        if (byte == '&') {
            result += "&amp;";
        } else if (byte == '<') {
            result += "&lt;";
        } else if (byte == '>') {
            result += "&gt;";
        } else if (byte == '\r') {
            result += "&#13;"; // a reader turns a bare one into a line feed
        } else {
            result += byte;
        }
    }
    return result;
}

std::string realText(double value) {
    if (std::isnan(value)) return "nan";
    if (std::isinf(value)) return value < 0 ? "-infinity" : "+infinity";
    char digits[32];
    const auto [end, error] = std::to_chars(std::begin(digits), std::end(digits), value);
    return {digits, end};
}

std::string dateText(const Date& date) {
    // The years 0 to 9999, which the text has room for.
    constexpr double earliest = -62167219200;
    constexpr double latest = 253402300799;
    const double seconds = std::floor(date.seconds) + static_cast<double>(secondsFrom1970To2001);
    if (!(seconds >= earliest && seconds <= latest)) throw Error("a date lies outside the years 0 to 9999");
    return UTCTime::text(static_cast<std::int64_t>(seconds)) + "Z";
}

class Writer {
  public:
    std::string finish(const Value& value) {
        append(value);
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
               "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
               "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
               "<plist version=\"1.0\">\n" +
               output_ + "</plist>\n";
    }

  private:
    void append(const Value& value) {
        if (level_ > depthLimit) throw Error("more than " + std::to_string(depthLimit) + " levels");
        std::visit([this](const auto& content) { append(content); }, value.content);
    }

    void append(const std::string& text) { element("string", escaped(text)); }
    void append(bool value) { line(value ? "<true/>" : "<false/>"); }
    void append(std::int64_t value) { element("integer", std::to_string(value)); }
    void append(std::uint64_t value) { element("integer", std::to_string(value)); }
    void append(double value) { element("real", realText(value)); }
    void append(const Date& date) { element("date", dateText(date)); }
    void append(const UID& uid) { append(Dictionary{{"CF$UID", {uid.number}}}); }

    /// The lines stand as deep as the element itself and get shorter with the depth, up to the eighth level.
    void append(const Data& data) {
        const std::size_t width = lineWidth - tabWidth * std::min<std::size_t>(level_, 8);
        const std::string text = Base64::encoded(data.bytes);
        line("<data>");
        for (std::size_t at = 0; at < text.size(); at += width) line(std::string_view(text).substr(at, width));
        line("</data>");
    }

    void append(const Array& items) {
        if (items.empty()) return line("<array/>");
        line("<array>");
        ++level_;
        for (const Value& item : items) append(item);
        --level_;
        line("</array>");
    }

    void append(const Dictionary& entries) {
        if (entries.empty()) return line("<dict/>");
        line("<dict>");
        ++level_;
        for (const auto& [key, value] : entries) {
            element("key", escaped(key));
            append(value);
        }
        --level_;
        line("</dict>");
    }

    void element(const std::string& name, const std::string& text) {
        line("<" + name + ">" + text + "</" + name + ">");
    }
    void line(std::string_view text) {
        output_.append(level_, '\t');
        output_ += text;
        output_ += '\n';
    }

    std::string output_;
    std::size_t level_ = 0;
};

} // namespace

std::string serializedXML(const Value& value) { return Writer().finish(value); }

std::string representable(std::string_view text) {
    const std::string decoded = Text::decodedUTF8(text);
    std::string result;
    for (std::size_t at = 0; at < decoded.size();) {
        if (const std::size_t length = unwritableLength(std::string_view(decoded).substr(at))) {
            result += "\uFFFD";
            at += length;
        } else {
            result += decoded[at++];
        }
    }
    return result;
}

} // namespace corvane::PropertyList
