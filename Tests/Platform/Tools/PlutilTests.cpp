#include "Tests/TestSupport.hpp"

namespace corvane {
namespace {

using TestSupport::Sandbox;

TestSupport::Outcome extract(const std::string& key, const FileURL& file) {
    return TestSupport::run({TestSupport::program("libexec/corvane/plutil"), "-extract", key, "raw", "-o", "-", file});
}

TEST(Plutil, printsEveryTypeFromBothForms) {
    const std::vector<std::pair<const char*, const char*>> cases{{"CFBundleIdentifier", "com.example.harbor"},
                                                                 {"Count", "3"},
                                                                 {"Big", "9223372036854775809"},
                                                                 {"Negative", "-5"},
                                                                 {"Ratio", "0.5"},
                                                                 {"Made", "2024-05-06T07:08:09Z"},
                                                                 {"Blob", "AAH+"},
                                                                 {"On", "true"},
                                                                 {"Off", "false"},
                                                                 {"List", "2"},
                                                                 {"List.0", "a"},
                                                                 {"List.1.1", "c"},
                                                                 {"List.1.1.c", "d"}};
    for (const char* form : {"xml.plist", "binary.plist"}) {
        for (const auto& [key, value] : cases) {
            const auto outcome = extract(key, TestSupport::source("Fuzz/Seeds/PropertyList") / form);
            EXPECT_EQ(outcome.status, 0) << key << outcome.errors;
            EXPECT_EQ(outcome.output, std::string(value) + "\n") << form << key;
        }
    }
    const Sandbox sandbox;
    const FileURL file = sandbox.write("a.plist", "<plist><dict><key>x.y</key><string>dotted</string></dict></plist>");
    EXPECT_EQ(extract("x\\.y", file).output, "dotted\n");
}

TEST(Plutil, saysWhatIsMissing) {
    const Sandbox sandbox;
    const FileURL list = TestSupport::source("Fuzz/Seeds/PropertyList/xml.plist");
    for (const char* key : {"Missing", "List.2", "List.-1", "List.x", "Count.a", "", "List."}) {
        const auto outcome = extract(key, list);
        EXPECT_EQ(outcome.status, 1) << key;
        EXPECT_EQ(outcome.errors, list.string() +
                                      ": Could not extract value, error: No value at that key path or "
                                      "invalid key path: " +
                                      key + "\n");
    }
    EXPECT_EQ(extract("a", sandbox / "missing").status, 1);
    EXPECT_EQ(extract("a", sandbox.url()).status, 1);
    const auto broken = extract("a", sandbox.write("broken", "<plist>"));
    EXPECT_EQ(broken.status, 1);
    EXPECT_NE(broken.errors.find(": Property List error: "), std::string::npos) << broken.errors;
    EXPECT_EQ(TestSupport::run({TestSupport::program("libexec/corvane/plutil"), "-lint", list}).status, 64);
}

} // namespace
} // namespace corvane
