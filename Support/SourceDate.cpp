#include "Support/SourceDate.hpp"

#include <charconv>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace corvane {

std::optional<std::uint64_t> sourceDate() {
    const char* text = std::getenv("SOURCE_DATE_EPOCH");
    if (text == nullptr || *text == '\0') return std::nullopt;
    const std::string digits = text;
    // Times up to the year 9999.
    constexpr std::uint64_t latest = 253402300799;
    std::uint64_t seconds = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), seconds);
    if (error != std::errc() || end != digits.data() + digits.size() || seconds > latest) {
        throw std::runtime_error("SOURCE_DATE_EPOCH is no number of seconds: " + digits);
    }
    return seconds;
}

} // namespace corvane
