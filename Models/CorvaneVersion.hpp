#pragma once

#include <string_view>

/// The version of the whole tool.
namespace corvane::CorvaneVersion {

inline constexpr std::string_view current = "0.3.0";

} // namespace corvane::CorvaneVersion
