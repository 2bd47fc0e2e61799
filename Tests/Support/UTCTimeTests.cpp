#include "Support/UTCTime.hpp"

#include <gtest/gtest.h>

namespace corvane {
namespace {

TEST(UTCTime, convertsBothWays) {
    const std::vector<std::pair<std::int64_t, std::string>> cases{{0, "1970-01-01T00:00:00"},
                                                                  {-1, "1969-12-31T23:59:59"},
                                                                  {1709251199, "2024-02-29T23:59:59"},
                                                                  {978307200, "2001-01-01T00:00:00"},
                                                                  {253402300799, "9999-12-31T23:59:59"}};
    for (const auto& [seconds, text] : cases) {
        EXPECT_EQ(UTCTime::text(seconds), text);
        EXPECT_EQ(UTCTime::parse(text + ".000Z"), seconds);
    }
    for (const char* text : {"", "2024-02-29", "2023-02-29T00:00:00", "2024-13-01T00:00:00", "2024-01-01T24:00:00",
                             "2024-01-01 00:00:00", "2024-01-01T0x:00:00"}) {
        EXPECT_EQ(UTCTime::parse(text), std::nullopt) << text;
    }
}

} // namespace
} // namespace corvane
