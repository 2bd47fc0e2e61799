#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Base 64 with the standard alphabet and "=" padding.
namespace corvane::Base64 {

/// One line without breaks.
std::string encoded(std::string_view bytes);

/// The bytes of a text; white space in it is skipped. Nothing when the text is no base 64: a foreign character, a wrong
/// number of characters or of paddings, or set bits behind the last byte.
std::optional<std::string> decoded(std::string_view text);

} // namespace corvane::Base64
