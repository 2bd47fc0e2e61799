#include "Support/PropertyList.hpp"

#include "Support/Base64.hpp"
#include "Support/BinaryPropertyList.hpp"
#include "Support/FileManager.hpp"
#include "Support/Text.hpp"
#include "Support/UTCTime.hpp"
#include "Support/XML.hpp"

#include <locale.h>

#include <charconv>
#include <cstdlib>
#include <optional>
#ifdef __APPLE__
#include <xlocale.h>
#endif

namespace corvane::PropertyList {
namespace {

[[noreturn]] void fail(const std::string& expected, const XML::Node& element) {
    throw Error("expected " + expected + ", found <" + element.name() + ">" + element.text().substr(0, 80));
}

template <class Number>
std::optional<Number> number(std::string_view text, int base) {
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

/// Also "nan" and "inf". Not every standard library has `from_chars` for this.
std::optional<double> realNumber(const std::string& text) {
    static const locale_t plain = ::newlocale(LC_ALL_MASK, "C", nullptr);
    if (text.find_first_of("xX") != std::string::npos) return std::nullopt;
    char* end = nullptr;
    const double value = ::strtod_l(text.c_str(), &end, plain);
    if (text.empty() || end != text.c_str() + text.size()) return std::nullopt;
    return value;
}

Value integer(const XML::Node& element) {
    std::string text = Text::trimmingWhitespaceAndNewlines(element.text());
    if (text.starts_with('+')) text.erase(0, 1);
    if (text.starts_with("0x") || text.starts_with("0X")) {
        const auto value = number<std::uint64_t>(std::string_view(text).substr(2), 16);
        if (!value) fail("a number", element);
        if (*value > INT64_MAX) return {*value};
        return {static_cast<std::int64_t>(*value)};
    }
    if (const auto value = number<std::int64_t>(text, 10)) return {*value};
    if (const auto value = number<std::uint64_t>(text, 10)) return {*value};
    fail("a number", element);
}

Value real(const XML::Node& element) {
    std::string text = Text::trimmingWhitespaceAndNewlines(element.text());
    if (text.starts_with('+')) text.erase(0, 1);
    if (const auto value = realNumber(text)) return {*value};
    fail("a number", element);
}

Value date(const XML::Node& element) {
    const auto seconds = UTCTime::parse(Text::trimmingWhitespaceAndNewlines(element.text()));
    if (!seconds) fail("a date", element);
    return {Date{static_cast<double>(*seconds - secondsFrom1970To2001)}};
}

Value data(const XML::Node& element) {
    auto bytes = Base64::decoded(element.text());
    if (!bytes) fail("base 64", element);
    return {Data{*std::move(bytes)}};
}

Value value(const XML::Node& element, std::size_t depth);

Value array(const XML::Node& element, std::size_t depth) {
    Array items;
    for (const XML::Node& child : element.elements()) items.push_back(value(child, depth + 1));
    return {std::move(items)};
}

Value dictionary(const XML::Node& element, std::size_t depth) {
    Dictionary entries;
    std::optional<std::string> key;
    for (const XML::Node& child : element.elements()) {
        if (!key && child.name() != "key") fail("a key", child);
        if (key) {
            entries.insert_or_assign(*std::move(key), value(child, depth + 1));
            key.reset();
        } else {
            key = child.text();
        }
    }
    if (key) fail("a value for the key " + *key, element);
    return {std::move(entries)};
}

Value value(const XML::Node& element, std::size_t depth) {
    if (depth > depthLimit) fail("fewer levels", element);
    const std::string name = element.name();
    if (name == "dict") return dictionary(element, depth);
    if (name == "array") return array(element, depth);
    if (name == "string") return {element.text()};
    if (name == "integer") return integer(element);
    if (name == "real") return real(element);
    if (name == "true") return {true};
    if (name == "false") return {false};
    if (name == "date") return date(element);
    if (name == "data") return data(element);
    fail("a value", element);
}

Value parseXML(std::string_view bytes, const std::string& name) {
    const XML::Document document = XML::Document::parse(bytes, name);
    if (document.root().name() != "plist") fail("a property list", document.root());
    const auto values = document.root().elements();
    if (values.size() != 1) fail("one value", document.root());
    return value(values.front(), 0);
}

} // namespace

bool Value::operator==(const Value& other) const { return content == other.content; }

const Value* Value::find(std::string_view key) const {
    const auto* entries = get<Dictionary>();
    if (entries == nullptr) return nullptr;
    const auto found = entries->find(key);
    return found == entries->end() ? nullptr : &found->second;
}

Value parse(std::string_view bytes, const std::string& name) {
    if (bytes.size() > sizeLimit) throw Error(name + ": larger than " + std::to_string(sizeLimit) + " bytes");
    try {
        return isBinary(bytes) ? parseBinary(bytes) : parseXML(bytes, name);
    } catch (const XML::Error& error) {
        throw Error(error.what());
    } catch (const Error& error) {
        throw Error(name + ": " + error.what());
    }
}

Value read(const FileURL& url) { return parse(FileManager::readFile(url, sizeLimit), url.string()); }

} // namespace corvane::PropertyList
