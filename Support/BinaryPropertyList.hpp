#pragma once

#include "Support/PropertyList.hpp"

#include <string_view>

namespace corvane::PropertyList {

/// True when the bytes begin like a binary list.
bool isBinary(std::string_view bytes);

/// @throws Error without the list's name
Value parseBinary(std::string_view bytes);

} // namespace corvane::PropertyList
