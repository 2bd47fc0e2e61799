#include "Support/FileManager.hpp"
#include "Support/XML.hpp"
#include "Tests/TestSupport.hpp"

namespace corvane {
namespace {

using TestSupport::Outcome;
using TestSupport::Sandbox;
using Strings = std::vector<std::string>;

Outcome runTool(const std::string& name, const Strings& arguments, const TestSupport::RunOptions& options = {}) {
    Strings command{TestSupport::program("libexec/corvane/" + name)};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return TestSupport::run(command, options);
}

/// A component package with one file of this many bytes and, when asked for, a bundle.
void makeComponent(const Sandbox& sandbox, const std::string& name, const std::string& identifier, std::size_t size,
                   bool hasBundle = false) {
    const std::string root = "roots/" + name;
    sandbox.write(root + "/file", std::string(size, 'f'));
    if (hasBundle) {
        sandbox.write(root + "/Quay.app/Contents/Info.plist",
                      "<plist><dict><key>CFBundleIdentifier</key><string>quay</string><key>CFBundleVersion</key>"
                      "<string>7</string></dict></plist>");
    }
    FileManager::createDirectory(sandbox / "parts");
    const Outcome outcome = runTool("pkgbuild", {"--root", sandbox / root, "--identifier", identifier, "--version",
                                                 "1.5", sandbox / ("parts/" + name)});
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
}

/// Builds "out.pkg" of this Distribution, expands it to "out", and returns the Distribution in it.
std::string builtDistribution(const Sandbox& sandbox, const std::string& distribution) {
    FileManager::removeItem(sandbox / "out");
    const Outcome outcome = runTool("productbuild", {"--package-path", sandbox / "parts", sandbox / "out.pkg",
                                                     "--distribution", sandbox.write("distribution", distribution)});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.output, "productbuild: Wrote product to " + (sandbox / "out.pkg").string() + "\n");
    EXPECT_EQ(runTool("pkgutil", {"--expand", sandbox / "out.pkg", sandbox / "out"}).status, 0);
    return TestSupport::read(sandbox / "out/Distribution");
}

const std::string declaration = "<?xml version=\"1.0\" encoding=\"utf-8\" standalone=\"yes\"?>\n";

TEST(Productbuild, fillsInWhatAPersonLeftOut) {
    const Sandbox sandbox;
    makeComponent(sandbox, "My Part.pkg", "part", 5000, true);
    makeComponent(sandbox, "b.pkg", "b", 1);
    makeComponent(sandbox, "c.pkg", "c", 1);
    EXPECT_EQ(builtDistribution(sandbox, "<?xml version='1.0'?>\n"
                                         "<installer-gui-script minSpecVersion=\"1.000000\">\n"
                                         "    <title>A &gt; B</title>\n"
                                         "    <pkg-ref id=\"b\"/>\n"
                                         "    <choice id=\"x\">\n"
                                         "        <pkg-ref id=\"b\">b.pkg</pkg-ref>\n"
                                         "        <pkg-ref id=\"other\"/>\n"
                                         "    </choice>\n"
                                         "    <pkg-ref id=\"other\" auth=\"Root\">My%20Part.pkg</pkg-ref>\n"
                                         "    <pkg-ref id=\"c\" version=\"9\">#c.pkg<must-close/></pkg-ref>\n"
                                         "</installer-gui-script>\n"),
              declaration +
                  "<installer-gui-script minSpecVersion=\"1.000000\">\n"
                  "    <title>A &gt; B</title>\n"
                  "    <pkg-ref id=\"b\" version=\"1.5\" installKBytes=\"1\" updateKBytes=\"0\">\n"
                  "        <bundle-version/>\n"
                  "    </pkg-ref>\n"
                  "    <choice id=\"x\">\n"
                  "        <pkg-ref id=\"b\">#b.pkg</pkg-ref>\n"
                  "        <pkg-ref id=\"other\"/>\n"
                  "    </choice>\n"
                  "    <pkg-ref id=\"other\" auth=\"Root\" version=\"1.5\" installKBytes=\"7\" updateKBytes=\"0\">"
                  "#My%20Part.pkg</pkg-ref>\n"
                  "    <pkg-ref id=\"c\" version=\"9\">#c.pkg<must-close/></pkg-ref>\n"
                  "    <pkg-ref id=\"other\" packageIdentifier=\"part\">\n"
                  "        <bundle-version>\n"
                  "            <bundle CFBundleVersion=\"7\" id=\"quay\" path=\"Quay.app\"/>\n"
                  "        </bundle-version>\n"
                  "    </pkg-ref>\n"
                  "    <pkg-ref id=\"c\" installKBytes=\"1\" updateKBytes=\"0\">\n"
                  "        <bundle-version/>\n"
                  "    </pkg-ref>\n"
                  "</installer-gui-script>");
    EXPECT_TRUE(FileManager::fileExists(sandbox / "out/My Part.pkg/Payload"));
}

TEST(Productbuild, bringsOnlySizesUpToDateInTheDistributionOfAProduct) {
    const Sandbox sandbox;
    makeComponent(sandbox, "a.pkg", "a", 5000);
    makeComponent(sandbox, "b.pkg", "b", 1);
    makeComponent(sandbox, "unused.pkg", "unused", 1);
    const std::string rest = "    <!-- as it was -->\n"
                             "    <script><![CDATA[ a < b ]]></script>\n"
                             "    <pkg-ref id=\"a\" installKBytes=\"3\"><bundle-version/></pkg-ref>\n"
                             "    <pkg-ref id=\"b\">#b.pkg</pkg-ref>\n"
                             "</d>";
    EXPECT_EQ(builtDistribution(sandbox, "<d>\n    <pkg-ref version=\"1\" installKBytes=\"3\" id=\"a\"> #a.pkg "
                                         "</pkg-ref>\n" +
                                             rest),
              declaration + "<d>\n    <pkg-ref version=\"1\" installKBytes=\"5\" id=\"a\"> #a.pkg </pkg-ref>\n" + rest);
    EXPECT_FALSE(FileManager::fileExists(sandbox / "out/unused.pkg"));
}

TEST(Productbuild, embedsComponentsByteForByteAndResources) {
    const Sandbox sandbox;
    makeComponent(sandbox, "a.pkg", "a", 70000);
    makeComponent(sandbox, "b.pkg", "b", 1);
    std::filesystem::rename(sandbox / "parts/b.pkg", sandbox / "b.pkg");
    sandbox.write("resources/en.lproj/welcome.txt", std::string(3000, 'w'));
    std::filesystem::create_symlink("en.lproj", sandbox / "resources/default.lproj");
    const FileURL distribution = sandbox.write("d", "<d><pkg-ref id='b'>b.pkg</pkg-ref><pkg-ref id='a'>a.pkg</pkg-ref>"
                                                    "<choice id='c'><pkg-ref id='a'>a.pkg</pkg-ref></choice></d>");
    const auto build = [&] {
        const Outcome outcome = runTool("productbuild",
                                        {"--distribution", distribution, "--resources", sandbox / "resources",
                                         "--package-path", sandbox / "parts", sandbox / "out.pkg"},
                                        {.folder = sandbox.url()});
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        return TestSupport::read(sandbox / "out.pkg");
    };
    EXPECT_EQ(build(), build());
    EXPECT_EQ(
        TestSupport::run({"7zz", "x", "-txar", "-y", "-o" + (sandbox / "out").string(), sandbox / "out.pkg"}).status,
        0);
    EXPECT_EQ(TestSupport::read(sandbox / "out/Resources/en.lproj/welcome.txt"), std::string(3000, 'w'));
    TestSupport::run({"7zz", "x", "-txar", "-y", "-o" + (sandbox / "a").string(), sandbox / "parts/a.pkg"});
    for (const char* name : {"Bom", "Payload", "PackageInfo"}) {
        EXPECT_EQ(TestSupport::read(sandbox / "out/a.pkg" / name), TestSupport::read(sandbox / "a" / name)) << name;
    }
    EXPECT_EQ(runTool("installer", {"-pkginfo", "-pkg", sandbox / "out.pkg"}).status, 0);
}

TEST(Productbuild, makesTheExampleProductAgainByteForByte) {
    const Sandbox sandbox;
    const Outcome outcome = TestSupport::run(
        {TestSupport::source("Examples/make"), TestSupport::program("libexec/corvane"), sandbox / "again.pkg"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(TestSupport::read(sandbox / "again.pkg"),
              TestSupport::read(TestSupport::source("Examples/Harbor Tools.pkg")));
    ASSERT_EQ(runTool("pkgutil", {"--expand-full", sandbox / "again.pkg", sandbox / "out"}).status, 0);
    for (const std::string name : {"Monitor", "Setup"}) {
        const Outcome difference = TestSupport::run({"diff", "-r", "--no-dereference",
                                                     TestSupport::source("Examples/HarborTools") / name / "root",
                                                     sandbox / "out" / (name + ".pkg") / "Payload"});
        EXPECT_EQ(difference.output, "");
    }
}

TEST(Productbuild, leavesNothingWhenItFails) {
    const Sandbox sandbox;
    makeComponent(sandbox, "a.pkg", "a", 1);
    ASSERT_EQ(runTool("productbuild", {"--distribution", sandbox.write("ok", "<d><pkg-ref id='a'>a.pkg</pkg-ref></d>"),
                                       "--package-path", sandbox / "parts", sandbox / "parts/product.pkg"})
                  .status,
              0);
    std::string damaged = TestSupport::read(sandbox / "parts/a.pkg");
    damaged[damaged.size() - 3] = static_cast<char>(damaged[damaged.size() - 3] ^ 1);
    sandbox.write("parts/damaged.pkg", damaged);
    sandbox.write("parts/text.pkg", "text");
    const std::vector<std::pair<std::string, std::string>> cases{
        {"<d><pkg-ref id='a'>missing.pkg</pkg-ref></d>", "The package missing.pkg is neither in "},
        {"<d><pkg-ref id='a'>product.pkg</pkg-ref></d>", "product.pkg: It is no component package"},
        {"<d><pkg-ref id='a'>damaged.pkg</pkg-ref></d>", "damaged.pkg"},
        {"<d><pkg-ref id='a'>text.pkg</pkg-ref></d>", "text.pkg: xar: "},
        {"<d><pkg-ref id='a'>#..</pkg-ref></d>", "found \"..\""},
        {"<d><pkg-ref id='a'>a.pkg</pkg-ref>", "/d: line 1: "}};
    for (const auto& [distribution, problem] : cases) {
        const Outcome outcome = runTool("productbuild", {"--distribution", sandbox.write("d", distribution),
                                                         "--package-path", sandbox / "parts", sandbox / "out.pkg"});
        EXPECT_EQ(outcome.status, 1) << distribution;
        EXPECT_EQ(outcome.errors.find("productbuild: error: "), 0U) << outcome.errors;
        EXPECT_NE(outcome.errors.find(problem), std::string::npos) << outcome.errors;
    }
    const Outcome unwritable = runTool("productbuild", {"--distribution", sandbox / "ok", sandbox / "no/out.pkg"});
    EXPECT_EQ(unwritable.status, 1);
    EXPECT_NE(unwritable.errors.find("Cannot write package to"), std::string::npos);
    EXPECT_EQ(runTool("productbuild", {sandbox / "out.pkg"}).status, 64);
    EXPECT_EQ(runTool("productbuild", {"--distribution", sandbox / "d", "--what", sandbox / "out.pkg"}).status, 64);
    EXPECT_EQ(FileManager::contentsOfDirectory(sandbox.url()).size(), 4U) << "parts, roots and two documents";
}

TEST(Productbuild, rebuildsRealProducts) {
    CORVANE_REQUIRE_SAMPLES();
    int rebuilt = 0;
    for (const FileURL& package : FileManager::contentsOfDirectory(*TestSupport::samples() / "pkg")) {
        SCOPED_TRACE(package);
        const Sandbox sandbox;
        ASSERT_EQ(runTool("pkgutil", {"--expand", package, sandbox / "out"}).status, 0);
        if (!FileManager::fileExists(sandbox / "out/Distribution")) continue;
        FileManager::createDirectory(sandbox / "parts");
        for (const FileURL& folder : FileManager::contentsOfDirectory(sandbox / "out")) {
            if (!FileManager::fileExists(folder / "PackageInfo")) continue;
            ASSERT_EQ(runTool("pkgutil", {"--flatten", folder, sandbox / "parts" / folder.filename()}).status, 0);
        }
        const XML::Document original = XML::Document::read(sandbox / "out/Distribution");
        const XML::Document again = XML::Document::parse(
            builtDistribution(sandbox, TestSupport::read(sandbox / "out/Distribution")), "Distribution");
        EXPECT_EQ(again.root().serialized(), original.root().serialized());
        ++rebuilt;
    }
    EXPECT_GT(rebuilt, 10);
}

} // namespace
} // namespace corvane
