#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace corvane {

/// Parsed JSON; objects keep their keys in ascending order.
using JSONValue = nlohmann::json;

/// One compact line without a line break: keys ascending, no white space, "/" written as "\/".
/// @throws nlohmann::json::exception when a string is not valid UTF-8.
std::string compactJSON(const JSONValue& value);

/// One value a line: objects and arrays are spread over lines and indented by two blanks, keys ascending, " : " between
/// key and value, "/" as it is. No line feed at the end.
/// @throws nlohmann::json::exception when a string is not valid UTF-8.
std::string prettyJSON(const JSONValue& value);

} // namespace corvane
