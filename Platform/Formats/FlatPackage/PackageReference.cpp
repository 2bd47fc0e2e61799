#include "Platform/Formats/FlatPackage/PackageReference.hpp"

#include "Platform/Formats/Digest.hpp"
#include "Support/Text.hpp"

namespace corvane::FlatPackage::PackageReference {
namespace {

/// The element's own text, without that of elements in it.
std::string textOf(const XML::Node& reference) {
    std::string text;
    for (const XML::Node& child : reference.children()) {
        if (child.isText()) text += child.text();
    }
    return Text::trimmingWhitespaceAndNewlines(text);
}

/// What may stand in the fragment of a reference as it is.
bool isPlain(char byte) {
    constexpr std::string_view marks = "-._~!$&'()*+,;=:@/?";
    const bool isLetter = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
    return isLetter || (byte >= '0' && byte <= '9') || marks.find(byte) != std::string_view::npos;
}

std::string percentEncoded(std::string_view text) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string result;
    for (const char byte : text) {
        if (isPlain(byte)) {
            result += byte;
            continue;
        }
        const auto value = static_cast<unsigned char>(byte);
        result += '%';
        result += digits[value >> 4U];
        result += digits[value & 15U];
    }
    return result;
}

} // namespace

std::string percentDecoded(std::string_view text) {
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const auto byte =
            text[at] == '%' && at + 2 < text.size() ? fromHexadecimal(text.substr(at + 1, 2)) : std::nullopt;
        result += byte ? *byte : std::string(1, text[at]);
        if (byte) at += 2;
    }
    return result;
}

bool isEmbedded(const XML::Node& reference) { return textOf(reference).starts_with('#'); }

std::optional<std::string> packageName(const XML::Node& reference) {
    std::string text = textOf(reference);
    if (text.empty()) return std::nullopt;
    if (text.front() == '#') text.erase(0, 1);
    return lastPathComponent(percentDecoded(text));
}

void setEmbedded(const XML::Node& reference, std::string_view packageName) {
    std::string text = "#" + percentEncoded(packageName);
    for (const XML::Node& child : reference.children()) {
        if (!child.isText()) continue;
        child.setText(text);
        text.clear();
    }
}

} // namespace corvane::FlatPackage::PackageReference
