#include "Services/DistributionFile.hpp"
#include "Services/IdentityLocator.hpp"
#include "Services/SystemTool.hpp"
#include "Support/MD5.hpp"
#include "Tests/TestSupport.hpp"

#include <fstream>

namespace corvane {
namespace {

using TestSupport::Sandbox;

/// A path below the sandbox as it is listed in a database: without the leading slash.
std::string listed(const FileURL& url) { return std::filesystem::canonical(url).string().substr(1); }

TEST(DistributionFile, isTheUnchangedFileOfAnInstalledPackage) {
    const Sandbox sandbox;
    const FileURL original = sandbox.write("usr/bin/diff", "original");
    const FileURL changed = sandbox.write("usr/bin/xattr", "changed");
    const FileURL unowned = sandbox.write("usr/local/bin/diff", "original");
    std::filesystem::create_directories(sandbox / "etc");
    std::filesystem::create_symlink(original, sandbox / "etc/alternative");
    std::filesystem::create_symlink("../../etc/alternative", sandbox / "usr/bin/open");
    std::filesystem::create_symlink("nowhere", sandbox / "usr/bin/dangling");
    sandbox.write("info/other:amd64.md5sums", "00000000000000000000000000000000  usr/share/doc/other/copyright\n");
    sandbox.write("info/tools.md5sums", hexadecimalMD5("before") + "  " + listed(original) + ".old\n" +
                                            hexadecimalMD5("original") + "  " + listed(original) + "\n" +
                                            hexadecimalMD5("before") + "  " + listed(changed) + "\n");
    sandbox.write("info/tools.list", hexadecimalMD5("original") + "  " + listed(unowned) + "\n");

    const std::pair<FileURL, bool> cases[] = {
        {original, true},
        {sandbox / "usr/bin/open", true},
        {changed, false},
        {unowned, false},
        {sandbox / "usr/bin/dangling", false},
        {sandbox / "usr/bin/missing", false},
        {sandbox / "usr/bin", false},
    };
    for (const auto& [file, expected] : cases) {
        EXPECT_EQ(DistributionFile::isUnchanged(file, sandbox / "info"), expected) << file;
    }
    EXPECT_FALSE(DistributionFile::isUnchanged(original, sandbox / "no database"));
}

TEST(DistributionFile, isFoundWhereThePackageNamesItWithoutUsr) {
    const FileURL shell = std::filesystem::canonical("/bin/sh");
    if (!shell.string().starts_with("/usr/")) GTEST_SKIP() << "/bin is a folder of its own here";
    const Sandbox sandbox;
    const std::string digest = hexadecimalMD5(TestSupport::read(shell));
    sandbox.write("info/shell.md5sums", digest + "  " + listed(shell).substr(4) + "\n");
    EXPECT_TRUE(DistributionFile::isUnchanged("/bin/sh", sandbox / "info"));
}

TEST(SystemTool, prefersThePathAndKnowsTheDistributionsNamesakes) {
    const Sandbox sandbox;
    for (const char* name : {"diff", "pkgutil", "ditto"}) sandbox.write("libexec/" + std::string(name), "portable");
    const FileURL standIn = sandbox.write("bin/pkgutil", "stand-in");
    const FileURL namesake = sandbox.write("bin/diff", "namesake");
    const FileURL unrelated = sandbox.write("bin/cmp", "namesake");
    std::filesystem::create_symlink("nowhere", sandbox / "bin/ditto");
    sandbox.write("info/tools.md5sums", hexadecimalMD5("namesake") + "  " + listed(namesake) + "\n" +
                                            hexadecimalMD5("namesake") + "  " + listed(unrelated) + "\n");

    const struct {
        std::string name, path;
        FileURL expected;
    } cases[] = {
        {"what stands there", standIn.string(), standIn},
        {"the distribution's namesake", namesake.string(), sandbox / "libexec/diff"},
        {"the distribution's, with no portable tool", unrelated.string(), unrelated},
        {"missing, with a portable tool", (sandbox / "nowhere/pkgutil").string(), sandbox / "libexec/pkgutil"},
        {"a link to nothing", (sandbox / "bin/ditto").string(), sandbox / "libexec/ditto"},
        {"unknown", (sandbox / "bin/unknown").string(), sandbox / "bin/unknown"},
    };
    for (int time = 0; time < 2; ++time) { // the second time from memory
        for (const auto& tool : cases) {
            EXPECT_EQ(SystemTool::executable(tool.path, sandbox / "libexec", sandbox / "info"), tool.expected)
                << tool.name;
        }
    }
}

// The suite lies where the build tree has the same shape as an installation.
TEST(SystemTool, findsTheSetOfThisBuild) {
    if (!std::filesystem::exists(TestSupport::program("libexec/corvane/security"))) GTEST_SKIP() << "no portable tools";
    if (std::filesystem::exists("/usr/bin/security")) GTEST_SKIP() << "this system has the tool";
    EXPECT_EQ(SystemTool::executable("/usr/bin/security"), TestSupport::program("libexec/corvane/security"));
}

TEST(SystemTool, looksInTheTestsFolderAloneWhileOverridden) {
    const Sandbox sandbox;
    const FileURL fake = sandbox.write("sh", "fake");
    {
        const SystemTool::Override tools(sandbox.url());
        EXPECT_EQ(SystemTool::executable("/bin/sh"), fake);
        EXPECT_EQ(SystemTool::executable("/usr/bin/security"), "/usr/bin/security");
    }
    EXPECT_EQ(SystemTool::executable("/bin/sh"), "/bin/sh");
}

TEST(IdentityLocator, asksTheKeychainToolAndHasNoIdentityOnFailure) {
    const std::string listing = R"list(  1) 0123456789ABCDEF "Developer ID Installer: Jane (TEAM1)"
  2) 0123456789ABCDE0 "Developer ID Application: Jane (TEAM1)"
     2 valid identities found)list";
    const struct {
        std::string body;
        std::vector<SigningIdentity> expected;
    } cases[] = {
        {"[ \"$*\" = 'find-identity -v -p basic' ] && cat listing", {{"Developer ID Installer: Jane (TEAM1)"}}},
        {"cat listing; exit 1", {}},
        {"cat listing >&2", {}},
    };
    for (const auto& expected : cases) {
        const Sandbox sandbox;
        sandbox.write("listing", listing);
        sandbox.writeScript("security", "cd '" + sandbox.url().string() + "' || exit 9\n" + expected.body);
        const SystemTool::Override tools(sandbox.url());
        EXPECT_EQ(IdentityLocator::installerIdentities(), expected.expected) << expected.body;
    }
    const Sandbox empty;
    const SystemTool::Override tools(empty.url());
    std::stop_source source;
    EXPECT_TRUE(IdentityLocator::installerIdentities(source.get_token()).empty());
    source.request_stop();
    EXPECT_TRUE(IdentityLocator::installerIdentities(source.get_token()).empty());
}

} // namespace
} // namespace corvane
