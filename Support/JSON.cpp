#include "Support/JSON.hpp"

namespace corvane {
namespace {

/// @param indentation of the line on which the value begins
std::string pretty(const JSONValue& value, const std::string& indentation) {
    if (!value.is_structured()) return value.dump();
    const std::string inner = indentation + "  ";
    std::string lines;
    for (const auto& [key, element] : value.items()) {
        if (!lines.empty()) lines += ",\n";
        lines += inner + (value.is_object() ? JSONValue(key).dump() + " : " : "") + pretty(element, inner);
    }
    const char* brackets = value.is_object() ? "{}" : "[]";
    return brackets[0] + ("\n" + lines) + "\n" + indentation + brackets[1];
}

} // namespace

std::string compactJSON(const JSONValue& value) {
    // A slash only ever stands inside strings, so escaping it afterwards touches nothing else.
    std::string line;
    for (const char character : value.dump()) {
        if (character == '/') line += '\\';
        line += character;
    }
    return line;
}

std::string prettyJSON(const JSONValue& value) { return pretty(value, ""); }

} // namespace corvane
