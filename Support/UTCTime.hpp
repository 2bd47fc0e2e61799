#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Points in time as seconds since 1970 and as text in UTC, "YYYY-MM-DDTHH:MM:SS".
namespace corvane::UTCTime {

/// What follows the seconds (a fraction, "Z") is not looked at. Nothing when the text is no time.
std::optional<std::int64_t> parse(std::string_view text);

/// Without a "Z". For the years 0 to 9999.
std::string text(std::int64_t seconds);

} // namespace corvane::UTCTime
