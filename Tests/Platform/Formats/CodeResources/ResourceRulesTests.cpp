#include "Platform/Formats/CodeResources/ResourceRules.hpp"
#include "Platform/Formats/FormatError.hpp"

#include <gtest/gtest.h>

namespace corvane::CodeResources {
namespace {

PropertyList::Value list(const std::string& content) {
    return PropertyList::parse("<plist><dict>" + content + "</dict></plist>", "rules");
}

std::string rule(const std::string& pattern, const std::string& value) { return "<key>" + pattern + "</key>" + value; }

std::string heavy(double weight, const std::string& flags = "") {
    return "<dict><key>weight</key><real>" + std::to_string(weight) + "</real>" + flags + "</dict>";
}

const std::string omit = "<key>omit</key><true/>";
const std::string nested = "<key>nested</key><true/>";
const std::string usual = rule("^.*", "<true/>") + rule("^[^/]+$", heavy(10, nested)) +
                          rule("^(Frameworks|MacOS|Library/(Spotlight|LoginItems))/", heavy(10, nested)) +
                          rule(".*\\.dSYM($|/)", heavy(11)) + rule("^Info\\.plist$", heavy(20, omit)) +
                          rule("^Resources/", heavy(20)) + rule("^(.*/)?\\.DS_Store$", heavy(2000, omit)) +
                          rule("^Resources/.*\\.lproj/locversion.plist$", heavy(1100, omit));

ResourceRules rules(const std::string& content) {
    return ResourceRules::parse(*list(content).get<PropertyList::Dictionary>(), "rules");
}

/// "-" not sealed, "s" sealed, "n" sealed at a place for nested code, "x" excluded.
std::string verdict(const ResourceRules& rules, std::string_view path) {
    const Treatment treatment = rules.treatment(path);
    if (treatment.isExcluded) return treatment.isSealed ? "sealed and excluded" : "x";
    if (!treatment.isSealed) return "-";
    return treatment.isNested ? "n" : "s";
}

TEST(ResourceRules, theHeaviestDecides) {
    ResourceRules usualRules = rules(usual);
    usualRules.exclude("MacOS/App");
    const std::pair<const char*, const char*> cases[] = {
        {"Resources/a.txt", "s"},
        {"Resources/.DS_Store", "-"},
        {"Resources/x.DS_Store", "s"},
        {"Resources/en.lproj/locversion.plist", "-"},
        {"Info.plist", "-"},
        {"Resources/Info.plist", "s"},
        {"Info_plist", "n"},
        {"Frameworks/A.framework", "n"},
        {"Frameworks/A.framework.dSYM", "s"},
        {"Library/LoginItems/Helper.app", "n"},
        {"Library/Other/Helper.app", "s"},
        {"line\nfeed", "n"},
        {"Resources/caf\xc3\xa9", "s"},
        {"MacOS/App", "x"},
        {"MacOS/App/below", "x"},
        {"MacOS/Apples", "n"},
        {"_CodeSignature", "x"},
        {"_CodeSignature/CodeResources", "x"},
        {"CodeResources", "x"},
        {"_MASReceipt/receipt", "x"},
        {"Resources/_CodeSignature", "s"},
    };
    for (const auto& [path, expected] : cases) EXPECT_EQ(verdict(usualRules, path), expected) << path;
    EXPECT_EQ(usualRules.count(), 8u);
}

TEST(ResourceRules, valuesAndTies) {
    const std::pair<std::string, const char*> cases[] = {
        {"", "-"},
        {rule("^b", "<true/>"), "-"},
        {rule("a", "<true/>"), "s"},
        {rule("a", "<false/>"), "-"},
        {rule("a", "<dict/>"), "s"},
        {rule("a", "<dict><key>omit</key><false/><key>unknown</key><string/></dict>"), "s"},
        {rule("a", "<true/>") + rule("^a", "<false/>"), "s"},
        {rule("a", heavy(1, nested)) + rule("^a", "<true/>"), "s"},
        {rule("a", heavy(1, nested)) + rule("^a", "<false/>"), "n"},
        {rule("a", "<true/>") + rule("^a", "<dict><key>weight</key><integer>2</integer><key>omit</key><true/></dict>"),
         "-"},
        {rule("a", "<true/>") + rule("^a", heavy(0.5, omit)), "s"},
        {rule("a", heavy(-3)), "s"},
    };
    for (const auto& [content, expected] : cases) EXPECT_EQ(verdict(rules(content), "a"), expected) << content;
}

TEST(ResourceRules, patternsAreExtendedExpressions) {
    struct Case {
        const char* pattern;
        const char* path;
        bool isFound;
    };
    const Case cases[] = {
        {"b", "abc", true},
        {"^b", "abc", false},
        {"c$", "abc", true},
        {"c$", "abc\n", false},
        {"^b", "a\nb", false},
        {"a.b", "a\nb", true},
        {"[\\.]x", "\\x", true},
        {"[]x]y", "]y", true},
        {"[^]x]y", "]y", false},
        {"[[]y", "[y", true},
        {"[[:digit:]]{2}", "a12", true},
        {"[[:digit:]]{2}", "a1b2", false},
        {"(a|b)+c?$", "xab", true},
        {"\\.x", "yx", false},
        {"^.$", "\xc3\xa9", false},
    };
    for (const Case& each : cases) {
        const std::string found = verdict(rules(rule(each.pattern, "<true/>")), each.path);
        EXPECT_EQ(found, each.isFound ? "s" : "-") << each.pattern << " in " << each.path;
    }
}

TEST(ResourceRules, refusesWhatIsNoRule) {
    std::string many;
    for (int index = 0; index < 200; ++index) many += rule("a" + std::to_string(index), "<true/>");
    std::string slow;
    for (int index = 0; index < 100; ++index) slow += rule("(a{10}){10}" + std::to_string(index), "<true/>");
    const std::pair<std::string, const char*> cases[] = {
        {rule("(", "<true/>"), "the pattern is none"},
        {rule("*", "<true/>"), "the pattern is none"},
        {rule("((((a{1,99}){1,99}){1,99}){1,99}){1,99}", "<true/>"), "the pattern is none"},
        {rule("((a{99}){99}){9}", "<true/>"), "the pattern is none"},
        {rule("(a)\\1", "<true/>"), "several ways"},
        {rule("\\w", "<true/>"), "several ways"},
        {rule("a\\", "<true/>"), "several ways"},
        {rule("[[.a.]]", "<true/>"), "several ways"},
        {rule("[[=a=]]", "<true/>"), "several ways"},
        {rule("[[:digit", "<true/>"), "several ways"},
        {rule("[a", "<true/>"), "the pattern is none"},
        {rule("a", "<string>true</string>"), "expected true, false or a dictionary"},
        {rule("a", "<dict><key>weight</key><true/></dict>"), "expected a number"},
        {rule("a", "<dict><key>weight</key><real>nan</real></dict>"), "expected a number"},
        {rule("a", "<dict><key>omit</key><integer>1</integer></dict>"), "expected true or false for omit"},
        {rule(std::string(2000, 'a'), "<true/>"), "too long"},
        {many, "at most 128 rules, found 200"},
        {slow, "take too long"},
    };
    for (const auto& [content, problem] : cases) {
        try {
            rules(content);
            ADD_FAILURE() << "no error for " << content;
        } catch (const FormatError& error) {
            EXPECT_NE(std::string(error.what()).find(problem), std::string::npos) << error.what();
        }
    }
}

TEST(ResourceRules, weakOnes) {
    const std::pair<std::string, bool> cases[] = {
        {usual, false},
        {usual + rule("^PkgInfo$", heavy(20, omit)) + rule("^.*\\.lproj/locversion.plist$", heavy(1100, omit)), false},
        {usual + rule("^Resources/secret", heavy(3000)), false},
        {usual + rule("^Resources/secret", heavy(3000, omit)), true},
        {usual + rule("^Resources/secret", "<false/>"), true},
        {usual + rule("^.*", "<false/>"), true},
        {rule("^Resources/", "<true/>"), true},
        {"", true},
    };
    for (const auto& [content, expected] : cases) EXPECT_EQ(rules(content).areWeak(2), expected) << content;
    EXPECT_TRUE(ResourceRules().areWeak(2));
}

} // namespace
} // namespace corvane::CodeResources
