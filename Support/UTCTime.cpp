#include "Support/UTCTime.hpp"

#include <chrono>
#include <cstdio>

namespace corvane::UTCTime {
namespace {

constexpr std::string_view shape = "dddd-dd-ddTdd:dd:dd";

bool hasShape(std::string_view text) {
    if (text.size() < shape.size()) return false;
    for (std::size_t index = 0; index < shape.size(); ++index) {
        const bool isDigit = text[index] >= '0' && text[index] <= '9';
        if (shape[index] == 'd' ? !isDigit : text[index] != shape[index]) return false;
    }
    return true;
}

unsigned number(std::string_view digits) {
    unsigned value = 0;
    for (const char digit : digits) value = value * 10 + static_cast<unsigned>(digit - '0');
    return value;
}

} // namespace

std::optional<std::int64_t> parse(std::string_view text) {
    if (!hasShape(text)) return std::nullopt;
    const auto part = [&](std::size_t at, std::size_t size) { return number(text.substr(at, size)); };
    const std::chrono::year_month_day day{std::chrono::year(static_cast<int>(part(0, 4))),
                                          std::chrono::month(part(5, 2)), std::chrono::day(part(8, 2))};
    if (!day.ok() || part(11, 2) > 23 || part(14, 2) > 59 || part(17, 2) > 60) return std::nullopt;
    const std::int64_t days = std::chrono::sys_days(day).time_since_epoch().count();
    return days * 86400 + part(11, 2) * 3600 + part(14, 2) * 60 + part(17, 2);
}

std::string text(std::int64_t seconds) {
    const std::chrono::sys_seconds time{std::chrono::seconds(seconds)};
    const auto day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(time - day);
    char result[64];
    std::snprintf(result, sizeof result, "%04d-%02u-%02uT%02d:%02d:%02d", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()));
    return result;
}

} // namespace corvane::UTCTime
