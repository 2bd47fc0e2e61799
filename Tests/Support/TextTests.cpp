#include "Support/Text.hpp"

#include <gtest/gtest.h>

namespace corvane {
namespace {

TEST(Text, decodesUTF8AndRepairsEveryMaximalInvalidSequenceOnce) {
    const struct {
        std::string bytes;
        std::string text;
    } cases[] = {
        {"plain", "plain"},
        {"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x93\xA6", "é€📦"},
        {"a\xFF\xFE", "a\uFFFD\uFFFD"},
        {"\xE2\x82", "\uFFFD"},   // cut short: one replacement
        {"\xE2\x82x", "\uFFFDx"}, // broken by the next character
        {"\xF0\x9F\x93\xF0\x9F\x93\xA6", "\uFFFD📦"},
        {"\xC0\xAF", "\uFFFD\uFFFD"},           // overlong
        {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"}, // surrogate
        {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},
    };
    for (const auto& [bytes, text] : cases) EXPECT_EQ(Text::decodedUTF8(bytes), text);
}

TEST(Text, keepsBytesOfAFileFromSteeringATerminal) {
    EXPECT_EQ(Text::printable("Caf\xc3\xa9 \x1b[2J\n\x7f\xc2\x9b\xff"),
              "Caf\xc3\xa9 \ufffd[2J\ufffd\ufffd\ufffd\ufffd");
}

TEST(Text, trimsUnicodeWhiteSpaceAndKeepsWhatIsInside) {
    EXPECT_EQ(Text::trimmingWhitespaceAndNewlines(" \t\r\n\u0085\u2028\u3000a b\u00A0\n"), "a b");
    EXPECT_EQ(Text::trimmingWhitespaceAndNewlines(" \n "), "");
    EXPECT_EQ(Text::trimmingWhitespace(" \t\u00A0signed\n "), "signed\n");
    EXPECT_EQ(Text::trimmingWhitespace("\nsigned"), "\nsigned");
}

TEST(Text, findsTheFirstLineAtAnyUnicodeLineBreak) {
    EXPECT_EQ(Text::firstLine("\r\n\none\r\ntwo"), "one");
    EXPECT_EQ(Text::firstLine("one\u2028two"), "one");
    EXPECT_EQ(Text::firstLine("one\u0085two"), "one");
    EXPECT_EQ(Text::firstLine("only"), "only");
    EXPECT_EQ(Text::firstLine(""), "");
    EXPECT_EQ(Text::firstLine("\n\n"), "\n\n");
}

TEST(Text, takesTheRestOfTheFirstLineWithAPrefix) {
    EXPECT_EQ(Text::firstMatchValue("a\n\nTeamIdentifier=ABCDE12345\nTeamIdentifier=no", "TeamIdentifier="),
              "ABCDE12345");
    EXPECT_EQ(Text::firstMatchValue("TeamIdentifier= \r\n", "TeamIdentifier="), " \r");
    EXPECT_EQ(Text::firstMatchValue("x TeamIdentifier=1", "TeamIdentifier="), std::nullopt);
}

TEST(Text, ordersByScalarsAfterCanonicalComposition) {
    EXPECT_FALSE(Text::canonicallyPrecedes("\u00E9", "e\u0301")); // the same text
    EXPECT_FALSE(Text::canonicallyPrecedes("e\u0301", "\u00E9"));
    EXPECT_TRUE(Text::canonicallyPrecedes("f", "e\u0301")); // é is U+00E9, behind every ASCII letter
    EXPECT_TRUE(Text::canonicallyPrecedes("Z", "a"));
    EXPECT_TRUE(Text::canonicallyPrecedes("\uFFFD", "\U0001F4E6"));
}

TEST(Text, knowsLettersMarksAndNumbers) {
    for (const char32_t scalar : {U'a', U'ß', U'9', U'٣', U'\u0301', U'中', U'Ⅷ'})
        EXPECT_TRUE(Text::isAlphanumeric(scalar));
    for (const char32_t scalar : {U'.', U'_', U' ', U'/', U'€', U'\u00A0', U'\U0001F4E6', U'\0'}) {
        EXPECT_FALSE(Text::isAlphanumeric(scalar));
    }
}

} // namespace
} // namespace corvane
