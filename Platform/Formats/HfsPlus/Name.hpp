#pragma once

#include "Platform/Formats/ByteCursor.hpp"

#include <string>

namespace corvane::HfsPlus {

/// A name of UTF-16 units behind their number, in UTF-8. @throws FormatError for half a surrogate pair
std::string readName(ByteCursor& cursor);

} // namespace corvane::HfsPlus
