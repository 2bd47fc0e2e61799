#include "Platform/Formats/Xar/ElementReader.hpp"

#include "Platform/Formats/EntryName.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Support/Base64.hpp"
#include "Support/Text.hpp"
#include "Support/UTCTime.hpp"

#include <array>
#include <charconv>

namespace corvane::Xar::ElementReader {
namespace {

[[noreturn]] void fail(std::string_view element, const std::string& problem) {
    throw FormatError("xar: table of contents: " + std::string(element) + ": " + problem);
}

template <class Integer>
std::optional<Integer> integer(std::string_view digits, int base = 10) {
    Integer value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, base);
    if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
    return value;
}

std::string decodedName(const XML::Node& element) {
    if (element.attribute("enctype") != "base64") return element.text();
    if (auto bytes = Base64::decoded(element.text())) return *std::move(bytes);
    fail("name", "expected base 64, found \"" + element.text() + "\"");
}

std::optional<Checksum> checksum(const XML::Node& data, std::string_view name) {
    const auto element = data.firstElement(name);
    const std::string style = element ? element->attribute("style").value_or("") : "none";
    if (style == "none") return std::nullopt;
    const auto kind = digestKind(style);
    if (!kind) fail(name, "unknown style \"" + style + "\"");
    const std::string digits = Text::trimmingWhitespaceAndNewlines(element->text());
    if (digits.size() != 2 * digestSize(*kind)) {
        fail(name,
             "expected " + std::to_string(2 * digestSize(*kind)) + " digits, found " + std::to_string(digits.size()));
    }
    auto value = fromHexadecimal(digits);
    if (!value) fail(name, "expected hexadecimal digits, found \"" + digits + "\"");
    return Checksum{*kind, *std::move(value)};
}

Encoding encoding(const XML::Node& data) {
    struct Style {
        std::string_view name;
        Encoding encoding;
    };
    static constexpr std::array<Style, 7> styles{{{"application/octet-stream", Encoding::stored},
                                                  {"application/x-gzip", Encoding::zlib},
                                                  {"application/zlib", Encoding::zlib},
                                                  {"application/x-bzip2", Encoding::bzip2},
                                                  {"application/x-lzma", Encoding::lzma},
                                                  {"application/x-xz", Encoding::xz},
                                                  {"", Encoding::stored}}};
    const auto element = data.firstElement("encoding");
    const std::string name = element ? element->attribute("style").value_or("") : "";
    for (const Style& style : styles) {
        if (style.name == name) return style.encoding;
    }
    fail("encoding", "unknown style \"" + name + "\"");
}

} // namespace

std::optional<std::string> text(const XML::Node& parent, std::string_view name) {
    const auto element = parent.firstElement(name);
    if (!element) return std::nullopt;
    return Text::trimmingWhitespaceAndNewlines(element->text());
}

std::uint64_t number(std::string_view digits, std::string_view name) {
    if (const auto value = integer<std::uint64_t>(digits)) return *value;
    fail(name, "expected a decimal number of 64 bits, found \"" + std::string(digits) + "\"");
}

std::uint64_t requiredNumber(const XML::Node& parent, std::string_view name) {
    const auto digits = text(parent, name);
    if (!digits) fail(parent.name(), "expected an element \"" + std::string(name) + "\", found none");
    return number(*digits, name);
}

HeapRange range(const XML::Node& parent, std::string_view lengthName, std::uint64_t heapSize) {
    const HeapRange found{requiredNumber(parent, "offset"), requiredNumber(parent, lengthName)};
    if (found.offset > heapSize || found.length > heapSize - found.offset) {
        fail(parent.name(), "expected a range in the heap of " + std::to_string(heapSize) + " bytes, found offset " +
                                std::to_string(found.offset) + ", length " + std::to_string(found.length));
    }
    return found;
}

std::optional<std::uint32_t> mode(const XML::Node& file) {
    const auto digits = text(file, "mode");
    if (!digits) return std::nullopt;
    const auto value = integer<std::uint32_t>(*digits, 8);
    if (!value) fail("mode", "expected an octal number, found \"" + *digits + "\"");
    return *value & 07777U;
}

std::optional<std::int64_t> time(const XML::Node& file, std::string_view name) {
    const auto found = text(file, name);
    return found ? UTCTime::parse(*found) : std::nullopt;
}

std::optional<std::uint32_t> owner(const XML::Node& file, std::string_view name) {
    const auto digits = text(file, name);
    return digits ? integer<std::uint32_t>(*digits) : std::nullopt;
}

std::string fileName(const XML::Node& file) {
    std::optional<std::string> name;
    for (const XML::Node& element : file.elements("name")) {
        const std::string found = decodedName(element);
        if (name && *name != found) fail("name", "expected one name, found \"" + *name + "\" and \"" + found + "\"");
        name = found;
    }
    if (!name) fail("file", "expected an element \"name\", found none");
    EntryName::checkComponent(*name, "xar: table of contents");
    return *name;
}

std::optional<Data> data(const XML::Node& file, std::uint64_t heapSize) {
    const auto element = file.firstElement("data");
    if (!element) return std::nullopt;
    if (file.elements("data").size() != 1) fail("file", "expected one element \"data\", found several");
    Data found{.stored = range(*element, "length", heapSize),
               .size = requiredNumber(*element, "size"),
               .encoding = encoding(*element),
               .archivedChecksum = checksum(*element, "archived-checksum"),
               .extractedChecksum = checksum(*element, "extracted-checksum")};
    if (found.encoding == Encoding::stored && found.size != found.stored.length) {
        fail("data", "expected equal sizes of stored data, found " + std::to_string(found.stored.length) + " and " +
                         std::to_string(found.size));
    }
    return found;
}

} // namespace corvane::Xar::ElementReader
