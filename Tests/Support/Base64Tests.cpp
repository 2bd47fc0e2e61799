#include "Support/Base64.hpp"

#include <gtest/gtest.h>

namespace corvane {
namespace {

TEST(Base64, convertsBothWays) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"\xff\xfe\xfd\xfc", "//79/A=="}};
    for (const auto& [bytes, text] : cases) {
        EXPECT_EQ(Base64::encoded(bytes), text);
        EXPECT_EQ(Base64::decoded(text), bytes);
    }
    EXPECT_EQ(Base64::decoded(" Zm\n9v\t\r\nZg = ="), "foof");
}

TEST(Base64, refusesEverythingElse) {
    for (const char* text :
         {"Z", "Zg", "Zg=", "Zg===", "=", "====", "Z===", "Zg==Zg==", "Zh==", "Zm9=", "Zm-v", "Zm9v="}) {
        EXPECT_EQ(Base64::decoded(text), std::nullopt) << text;
    }
}

} // namespace
} // namespace corvane
