// Takes single values out of property lists.

#include "Platform/Tools/Tool.hpp"
#include "Support/Base64.hpp"
#include "Support/FileError.hpp"
#include "Support/PropertyList.hpp"
#include "Support/UTCTime.hpp"

#include <charconv>
#include <cmath>
#include <limits>
#include <optional>

namespace corvane::Tools {
namespace {

using PropertyList::Array;
using PropertyList::Dictionary;
using PropertyList::Value;

/// The keys of a path such as "a.0.b\.c": a backslash takes the meaning from the dot behind it.
std::vector<std::string> components(const std::string& path) {
    std::vector<std::string> result(1);
    for (std::size_t at = 0; at < path.size(); ++at) {
        if (path[at] == '\\' && at + 1 < path.size())
            result.back() += path[++at];
        else if (path[at] == '.')
            result.emplace_back();
        else
            result.back() += path[at];
    }
    return result;
}

const Value* element(const Array& array, const std::string& digits) {
    std::size_t index = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), index);
    const bool isIndex = error == std::errc() && end == digits.data() + digits.size();
    return isIndex && index < array.size() ? &array[index] : nullptr;
}

const Value* find(const Value& root, const std::string& path) {
    const Value* value = &root;
    for (const std::string& key : components(path)) {
        const auto* array = value->get<Array>();
        value = array != nullptr ? element(*array, key) : value->find(key);
        if (value == nullptr) return nullptr;
    }
    return value;
}

std::string realText(double number) {
    char text[64];
    const auto result = std::to_chars(text, text + sizeof text, number);
    return {text, result.ptr};
}

std::string dateText(double seconds) {
    constexpr double secondsFrom1970To2001 = 978307200;
    constexpr double limit = 2e11;
    const double since1970 = std::floor(seconds + secondsFrom1970To2001);
    if (!(std::abs(since1970) < limit)) return realText(seconds);
    return UTCTime::text(static_cast<std::int64_t>(since1970)) + "Z";
}

/// How each type looks as raw text.
struct RawText {
    std::string operator()(const std::string& text) const { return text; }
    std::string operator()(bool value) const { return value ? "true" : "false"; }
    std::string operator()(std::int64_t number) const { return std::to_string(number); }
    std::string operator()(std::uint64_t number) const { return std::to_string(number); }
    std::string operator()(double number) const { return realText(number); }
    std::string operator()(const PropertyList::Date& date) const { return dateText(date.seconds); }
    std::string operator()(const PropertyList::Data& data) const { return Base64::encoded(data.bytes); }
    std::string operator()(const PropertyList::UID& uid) const { return std::to_string(uid.number); }
    std::string operator()(const Array& array) const { return std::to_string(array.size()); }
    std::string operator()(const Dictionary& dictionary) const {
        std::string lines;
        for (const auto& [key, value] : dictionary) lines += (lines.empty() ? "" : "\n") + key;
        return lines;
    }
};

int extract(const std::string& path, const std::string& file) {
    try {
        const Value root = PropertyList::read(file);
        if (const Value* value = find(root, path)) {
            print(std::visit(RawText{}, value->content) + "\n");
            return 0;
        }
        printError(file + ": Could not extract value, error: No value at that key path or invalid key path: " + path +
                   "\n");
    } catch (const FileError& error) {
        printError(file + ": file does not exist or is not readable or is not a regular file (" + error.what() + ")\n");
    } catch (const PropertyList::Error& error) {
        printError(file + ": Property List error: " + error.what() + "\n");
    }
    return 1;
}

} // namespace

int plutil(const Arguments& arguments) {
    const bool known = arguments.size() == 6 && arguments[0] == "-extract" && arguments[2] == "raw" &&
                       arguments[3] == "-o" && arguments[4] == "-";
    if (!known) throw UsageError("Usage: plutil -extract KEYPATH raw -o - FILE");
    return extract(arguments[1], arguments[5]);
}

} // namespace corvane::Tools
