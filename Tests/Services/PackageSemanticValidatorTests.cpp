#include "Models/PipelineModels.hpp"
#include "Services/PackageSemanticValidator.hpp"
#include "Services/PackageSemanticValidator/ContentComparison.hpp"
#include "Services/PackageSemanticValidator/Differences.hpp"
#include "Services/PackageSemanticValidator/MinimumVersion.hpp"
#include "Services/PackageSemanticValidator/PackageInfoMetadata.hpp"
#include "Support/FileManager.hpp"
#include "Tests/FakeTools.hpp"

#include <functional>

namespace corvane {
namespace {

using namespace PackageSemanticValidator;
using TestSupport::FakeTools;
using TestSupport::read;
using TestSupport::Sandbox;

std::string errorOf(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "no error";
}

TEST(Differences, showNinetyCharactersOnEachSide) {
    const std::string x(500, 'x');
    std::string y = x;
    y[10] = 'y';
    const auto [left, right] = firstDifferenceSummary(x, y);
    EXPECT_EQ(left, std::string(100, 'x') + "…");
    EXPECT_EQ(right, y.substr(0, 100) + "…");
    EXPECT_EQ(differenceSnippet(x, 90), std::string(180, 'x') + "…");
    EXPECT_EQ(differenceSnippet(x, 91), "…" + std::string(180, 'x') + "…");
    EXPECT_EQ(differenceSnippet(x, 410), "…" + std::string(180, 'x'));
    EXPECT_EQ(firstDifferenceSummary(x, x + "\n1\r\n2").second, "…" + std::string(90, 'x') + "\\n1\r\\n2");
    using Same = std::pair<std::string, std::string>;
    EXPECT_EQ(firstDifferenceSummary("\u00E9", "e\u0301"), Same("different content", "different content"));
    // Ninety families of seven code points each are ninety characters.
    std::string families;
    for (int count = 0; count < 91; ++count) families += "👨‍👩‍👧‍👦";
    EXPECT_EQ(differenceSnippet(families + "a", 91).size(), families.size() - families.size() / 91 + 4);
}

TEST(MinimumVersion, takesTheLaterOneAsItWasWritten) {
    EXPECT_EQ(stricterVersion("11.0", "12.0"), "12.0");
    EXPECT_EQ(stricterVersion("13.1", "12"), "13.1");
    EXPECT_EQ(stricterVersion("12", "12.0"), "12");
    EXPECT_EQ(stricterVersion("10.9", "10.10"), "10.10");
    EXPECT_EQ(stricterVersion("010.2", "10.1.9"), "010.2");
    EXPECT_EQ(stricterVersion(std::nullopt, "12.0"), "12.0");
    for (const char* bad : {"", "12..1", "12.", ".1", "12.x", "-1", "+1", "1 ", "9223372036854775808", "١"}) {
        EXPECT_EQ(errorOf([&] { stricterVersion(std::nullopt, bad); }),
                  std::string("Invalid minimum macOS version: ") + bad);
        EXPECT_EQ(errorOf([&] { stricterVersion(bad, "12.0"); }), std::string("Invalid minimum macOS version: ") + bad);
    }
}

TEST(PackageInfoMetadata, keepsTheVendorsTextAndTakesThePayload) {
    const Sandbox sandbox;
    const FileURL original = sandbox / "original";
    const FileURL generated = sandbox / "generated";
    const auto merged = [&](const std::string& vendor, bool modern) {
        sandbox.write("original", vendor);
        sandbox.write("generated", "<pkg-info generator-version='new' overwrite-permissions='true'>"
                                   "<payload numberOfFiles='3' installKBytes='4'/></pkg-info>");
        mergePackageInfo(original, generated, modern, "12.0");
        const std::string text = read(generated);
        EXPECT_EQ(errorOf([&] { comparePackageInfo(original, generated, modern, "12.0", "a.pkg"); }), "no error");
        return text.substr(text.find("<pkg-info"));
    };
    EXPECT_EQ(merged("<pkg-info relocatable='true' auth='root' minimumSystemVersion='10.13'><scripts/>"
                     "<payload installKBytes='1'/></pkg-info>",
                     true),
              "<pkg-info auth=\"root\" generator-version=\"new\" relocatable=\"false\" minimumSystemVersion=\"12.0\">\n"
              "  <scripts/>\n  <payload numberOfFiles=\"3\" installKBytes=\"4\"/>\n</pkg-info>\n");
    EXPECT_NE(merged("<pkg-info minimumSystemVersion='14.0'><payload/></pkg-info>", true).find("\"14.0\""),
              std::string::npos);
    EXPECT_EQ(merged("<pkg-info><payload/></pkg-info>", false).find("minimumSystemVersion"), std::string::npos);
    const auto failure = [&](const char* vendor, const char* rebuilt) {
        sandbox.write("original", vendor);
        sandbox.write("generated", rebuilt);
        return errorOf([&] { mergePackageInfo(original, generated, true, "12.0"); });
    };
    EXPECT_EQ(failure("<pkg-info minimumSystemVersion='12.x'/>", "<pkg-info><payload/></pkg-info>"),
              "Invalid minimum macOS version: 12.x");
    EXPECT_EQ(failure("<pkg/>", "<pkg-info/>"), "Cannot parse PackageInfo while preserving metadata");
    EXPECT_EQ(failure("<pkg-info/>", "<pkg-info/>"), "Rebuilt PackageInfo has no payload metadata");
}

/// A vendor's expanded package, and a rebuilt one that is what a test makes of it.
class ValidatorTest : public testing::Test {
  protected:
    ValidatorTest() {
        fakes.tool("pkgutil", "cp -a \"$2\" \"$3\"");
        fakes.tool("diff", "exec /usr/bin/diff --no-dereference \"$@\"");
        fakes.tool("lsbom", "grep -v '^#' \"$3\"");
        const Sandbox& sandbox = fakes.sandbox();
        sandbox.write("original/Distribution",
                      "<installer-gui-script minSpecVersion='1'><title>Tool</title>\n"
                      "<choice id='a'><pkg-ref id='com.a' installKBytes='7'/></choice>"
                      "<pkg-ref version='1' id='com.a' installKBytes='12'>#a.pkg</pkg-ref>"
                      "<pkg-ref id='com.b' installKBytes='0'> #b.pkg\n</pkg-ref></installer-gui-script>");
        sandbox.write("original/Resources/en.lproj/welcome.txt", "Welcome");
        sandbox.write("original/a.pkg/PackageInfo", "<pkg-info identifier='com.a' version='1' generator-version='x'>"
                                                    "<payload installKBytes='12'/><bundle id='b'/></pkg-info>");
        sandbox.write("original/a.pkg/Bom", "#1\n./x\t100644\n./._x\t100644\n");
        sandbox.writeScript("original/a.pkg/Scripts/postinstall", "exit 0");
        sandbox.write("original/a.pkg/Payload/x", "x");
        std::filesystem::create_symlink("A", sandbox / "original/a.pkg/Payload/link");
        sandbox.write("original/b.pkg/PackageInfo",
                      "<pkg-info identifier='com.b'><payload installKBytes='0'/></pkg-info>");
        FileManager::createDirectory(sandbox / "work");
        TestSupport::run({"cp", "-a", (sandbox / "original").string(), (sandbox / "rebuilt").string()});
    }

    std::string verdict(const Expectations& expectations = {.modernCompression = false,
                                                            .requestedMinOS = "12.0",
                                                            .removedComponentArchiveNames = {}}) const {
        const Sandbox& sandbox = fakes.sandbox();
        return errorOf(
            [&] { validate(sandbox / "original", sandbox / "rebuilt", expectations, sandbox / "work", {}); });
    }

    void damage(const std::string& script) const {
        const auto outcome = TestSupport::run({"sh", "-ec", script},
                                              {.environment = {}, .folder = fakes.sandbox() / "rebuilt", .input = ""});
        ASSERT_EQ(outcome.status, 0) << outcome.errors;
    }

    FakeTools fakes;
};

TEST_F(ValidatorTest, acceptsWhatRecompressionMayChange) {
    EXPECT_EQ(verdict(), "no error");
    damage(
        "sed -i -e \"s/id='com.a' installKBytes='12'/installKBytes='13' id='com.a'/\" -e 's/></>\\n</g' Distribution;"
        "sed -i -e \"s/installKBytes='12'/installKBytes='13' numberOfFiles='4'/\" "
        "-e \"s/generator-version='x'/relocatable='false'/\" a.pkg/PackageInfo");
    EXPECT_EQ(verdict(), "no error");
    EXPECT_EQ(fakes.calls().back().substr(0, 11), "diff|-r|-q|"); // equal bills of materials are not listed
}

TEST_F(ValidatorTest, showsTheOneThingThatChanged) {
    const struct {
        std::string script;
        std::string difference;
    } cases[] = {
        {"touch stray", "top-level package layout. Original: Distribution, Resources, a.pkg, b.pkg. Rebuilt: "
                        "Distribution, Resources, a.pkg, b.pkg, stray"},
        {"rm -r b.pkg; touch b.pkg", "component package list. Original: a.pkg, b.pkg. Rebuilt: a.pkg"},
        {"rm Distribution; mkdir Distribution",
         "component package list. Original: a.pkg, b.pkg. Rebuilt: component.pkg"},
        {"sed -i s,Tool,Tools, Distribution", "Distribution metadata. Original: <installer-gui-script minSpecVersion="
                                              "\"1\"><title>Tool</title><choice id=\"a\">"},
        {"sed -i s,installKBytes=.7.,installKBytes=\\'8\\', Distribution", "Distribution metadata. Original: "},
        {"sed -i \"s, installKBytes='12',,\" Distribution",
         "Distribution installKBytes fields. Original: a.pkg, b.pkg. Rebuilt: b.pkg"},
        {"sed -i 's,#b.pkg,#c.pkg,' Distribution",
         "Distribution component reference. Original: c.pkg. Rebuilt: missing component"},
        {"sed -i s,12,13, a.pkg/PackageInfo", "Distribution installKBytes for a.pkg. Original: 13. Rebuilt: 12"},
        {"sed -i s,installKBytes,k, a.pkg/PackageInfo",
         "Distribution installKBytes for a.pkg. Original: absent from PackageInfo. Rebuilt: 12"},
        {"echo >> Resources/en.lproj/welcome.txt", "installer resources. Original: vendor contents. Rebuilt: Files "},
        {"rm -r Resources; touch Resources", "installer resources. Original: present. Rebuilt: absent"},
        {"sed -i \"s,identifier,minimumSystemVersion='9' identifier,\" a.pkg/PackageInfo",
         "minimumSystemVersion in a.pkg. Original: absent. Rebuilt: 9"},
        {"sed -i 's,<bundle.*/>,,' a.pkg/PackageInfo",
         "PackageInfo semantics in a.pkg. Original: <pkg-info identifier=\"com.a\" relocatable=\"false\" version=\"1\">"
         "<payload/><bundle id=\"b\"/></pkg-info>. Rebuilt: "},
        {"sed -i \"s,version='1',version='2',\" a.pkg/PackageInfo", "PackageInfo semantics in a.pkg. Original: "},
        {"chmod -x a.pkg/Scripts/postinstall", "scripts in a.pkg file metadata. Original: postinstall=file:755. "
                                               "Rebuilt: postinstall=file:644"},
        {"rm -r a.pkg/Scripts", "scripts in a.pkg. Original: present. Rebuilt: absent"},
        {"mkdir b.pkg/Scripts", "scripts in b.pkg. Original: absent. Rebuilt: present"},
        {"for n in 1 2 3 4; do touch a.pkg/Payload/.$n; done",
         "payload in a.pkg. Original: vendor contents. Rebuilt: Only in "},
        {"ln -sfn B a.pkg/Payload/link", "payload in a.pkg. Original: vendor contents. Rebuilt: Symbolic links "},
        {"chmod 4755 a.pkg/Payload/x", "payload in a.pkg file metadata. Original: link=link:777:A\\nx=file:644. "
                                       "Rebuilt: link=link:777:A\\nx=file:4755"},
        {"touch b.pkg/extra", "contents of b.pkg. Original: PackageInfo. Rebuilt: PackageInfo, extra"},
        {"rm a.pkg/Bom", "BOM in a.pkg. Original: present. Rebuilt: absent"},
        {"sed -i s/644/755/ a.pkg/Bom",
         "payload BOM in a.pkg (binary contents differ). Original: ./x\t100644. Rebuilt: "
         "./x\t100755"},
        {"sed -i s/#1/#2/ a.pkg/Bom", "payload BOM in a.pkg (binary contents differ). Original: different content. "
                                      "Rebuilt: different content"},
    };
    for (const auto& [script, difference] : cases) {
        SCOPED_TRACE(script);
        TestSupport::run({"rm", "-r", (fakes.sandbox() / "rebuilt").string()});
        TestSupport::run({"cp", "-a", (fakes.sandbox() / "original").string(), (fakes.sandbox() / "rebuilt").string()});
        damage(script);
        const std::string error = verdict();
        EXPECT_TRUE(error.starts_with("Recompression changed " + difference)) << error;
    }
}

TEST_F(ValidatorTest, subtractsWhatWasRemovedOnRequest) {
    const Expectations removed{
        .modernCompression = true, .requestedMinOS = "12.0", .removedComponentArchiveNames = {"b.pkg"}};
    damage("rm -r b.pkg; sed -i \"s,identifier,minimumSystemVersion='12.0' identifier,\" a.pkg/PackageInfo");
    EXPECT_EQ(verdict(removed), "Recompression changed Distribution component reference. Original: b.pkg. Rebuilt: "
                                "missing component");
    for (const char* folder : {"original", "rebuilt"}) {
        fakes.sandbox().write(std::string(folder) + "/Distribution", "<d><pkg-ref id='com.a'>#a.pkg</pkg-ref></d>");
    }
    EXPECT_EQ(verdict(removed), "no error");
    damage("cp -r a.pkg b.pkg");
    EXPECT_TRUE(verdict(removed).starts_with("Recompression changed top-level package layout. "));
}

TEST_F(ValidatorTest, refusesNamesOfWhichOnlyOneWouldBeCompared) {
    for (const char* folder : {"original", "rebuilt"}) {
        for (const char* name : {"/\u00e9.pkg", "/e\u0301.pkg"}) {
            fakes.sandbox().write(std::string(folder) + name + "/PackageInfo", folder);
        }
    }
    EXPECT_TRUE(verdict().starts_with("Two entries of the package have the same name: "));
}

TEST_F(ValidatorTest, tellsWhichToolFailed) {
    fakes.tool("lsbom", "echo no bill >&2; exit 1");
    damage("echo >> a.pkg/Bom");
    EXPECT_EQ(verdict(), "lsbom failed (exit 1): no bill");
    fakes.tool("diff", "printf 'one\\n\\ntwo\\n'; printf 'three\\nfour\\n' >&2; exit 2");
    EXPECT_EQ(verdict(),
              "Recompression changed installer resources. Original: vendor contents. Rebuilt: one; two; three");
    fakes.tool("pkgutil", "echo damaged >&2; exit 1");
    EXPECT_EQ(verdict(), "pkgutil failed (exit 1): damaged");
}

TEST(ContentComparison, doesNotFollowLinksAndListsHiddenEntries) {
    const Sandbox sandbox;
    sandbox.write("tree/.hidden/file", "");
    std::filesystem::create_directory_symlink("..", sandbox / "tree/up");
    const std::map<std::string, std::string> expected{
        {".hidden", "directory:755"}, {".hidden/file", "file:644"}, {"up", "link:777:.."}};
    EXPECT_EQ(treeMetadata(sandbox / "tree"), expected);
    EXPECT_TRUE(treeMetadata(sandbox / "missing").empty());
}

} // namespace
} // namespace corvane
