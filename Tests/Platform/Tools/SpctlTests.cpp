#include "Tests/Platform/Tools/SigningFixture.hpp"

namespace corvane {
namespace {

using TestSupport::Outcome;

class PackageVerdict : public TestSupport::SigningFixture {
  protected:
    Outcome check(const std::string& package) const { return tool("pkgutil", {"--check-signature", package}); }
    Outcome assess(const std::string& package, const std::string& verbosity = "") const {
        std::vector<std::string> arguments{"--assess", "--type", "install", package};
        if (!verbosity.empty()) arguments.push_back(verbosity);
        return tool("spctl", arguments);
    }
    std::string sample(const char* name) const { return TestSupport::read(*TestSupport::samples() / "sig" / name); }
};

TEST_F(PackageVerdict, followsTheAdministratorsRoot) {
    sandbox.write("product/Distribution", "<installer-gui-script minSpecVersion=\"1\"/>\n");
    expectGood("pkgutil", {"--flatten", "product", "in.pkg"});
    import(hierarchy().pem(hierarchy().installer()));
    expectGood("productsign", {"--timestamp=none", "--sign", hierarchy().installer().name, "in.pkg", "out.pkg"});
    EXPECT_EQ(check("in.pkg").output, "Package \"in.pkg\":\n   Status: no signature\n");
    EXPECT_EQ(check("in.pkg").status, 1);
    const Outcome checked = expectGood("pkgutil", {"--check-signature", "out.pkg"});
    EXPECT_NE(checked.output.find("   Status: signed by a certificate trusted by this system\n"), std::string::npos);
    EXPECT_EQ(assess("out.pkg").errors, "out.pkg: rejected (not issued by Apple)\n");
    EXPECT_EQ(assess("out.pkg").status, 3);
    const Outcome untrusted =
        TestSupport::run({TestSupport::program("libexec/corvane/pkgutil"), "--check-signature", sandbox / "out.pkg"},
                         {.environment = {"XDG_DATA_HOME=" + (sandbox / "nowhere").string()}});
    EXPECT_NE(untrusted.output.find("   Status: signed by untrusted certificate\n"), std::string::npos);
    EXPECT_EQ(untrusted.status, 1);
}

TEST_F(PackageVerdict, refusesOtherCalls) {
    sandbox.write("text.pkg", "no package");
    const struct {
        std::vector<std::string> arguments;
        int status;
        const char* errors;
    } cases[] = {
        {{}, 2, "usage: spctl"},
        {{"--assess", "--type", "install"}, 2, "usage: spctl"},
        {{"--type", "install", "text.pkg"}, 2, "usage: spctl"},
        {{"--assess", "--type", "open", "text.pkg"}, 2, "usage: spctl"},
        {{"--assess", "--type", "install", "--status", "text.pkg"}, 2, "usage: spctl"},
        {{"--assess", "--type", "install", "text.pkg", "other.pkg"}, 2, "usage: spctl"},
        {{"--assess", "--type", "exec", "text.pkg"}, 3, "text.pkg: rejected (no usable signature)"},
        {{"--assess", "--type", "install", "text.pkg"}, 1, "text.pkg: xar: "},
        {{"--assess", "--type", "install", "none.pkg"}, 1, "none.pkg: No such file or directory\n"},
        {{"--assess", "--type", "exec", "none.app"}, 1, "none.app: No such file or directory\n"},
        {{"--assess", "--type", "e", "."}, 1, ".: bundle format unrecognized, invalid, or unsuitable\n"},
        {{"--assess", "--type", "install", "."}, 1, ".: xar: expected a file"},
    };
    for (const auto& each : cases) {
        const Outcome outcome = tool("spctl", each.arguments);
        EXPECT_EQ(outcome.status, each.status) << each.errors;
        EXPECT_EQ(outcome.errors.find(each.errors), 0U) << outcome.errors;
        EXPECT_EQ(outcome.output, "");
    }
    for (const char* name : {"text.pkg", "none.pkg"}) {
        const Outcome outcome = check(name);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(outcome.errors.find("Could not open package: " + std::string(name) + "\n"), 0U) << outcome.errors;
    }
}

TEST_F(PackageVerdict, isThatOfThePage) {
    CORVANE_REQUIRE_SAMPLES();
    const Outcome page = TestSupport::run({TestSupport::source("Documentation/package-verdicts"),
                                           TestSupport::program("libexec/corvane"), *TestSupport::samples()});
    EXPECT_EQ(page.status, 0) << page.errors;
    EXPECT_EQ(page.output, TestSupport::read(TestSupport::source("Documentation/PackageVerdicts.md")));
}

TEST_F(PackageVerdict, seesChangesToRealPackages) {
    CORVANE_REQUIRE_SAMPLES();
    const std::string stapled = sample("ch34vcp.pkg");
    const std::string ticket = stapled.substr(stapled.rfind("t8lr", stapled.rfind("t8lr") - 1));
    std::string changed = stapled;
    changed[changed.size() / 2] = static_cast<char>(changed[changed.size() / 2] ^ 1);
    sandbox.write("stapled.pkg", stapled);
    sandbox.write("changed.pkg", changed);
    sandbox.write("grafted.pkg", sample("goxar-valid.pkg") + ticket);
    EXPECT_EQ(assess("stapled.pkg").errors, "");
    EXPECT_EQ(assess("stapled.pkg").status, 0);
    EXPECT_EQ(assess("stapled.pkg", "-v").errors, "stapled.pkg: accepted\nsource=Notarized Developer ID\n");
    EXPECT_NE(assess("stapled.pkg", "-vv").errors.find("\norigin=Developer ID Installer: "), std::string::npos);
    EXPECT_EQ(check("changed.pkg").status, 1);
    EXPECT_NE(check("changed.pkg").output.find("Status: package is invalid (checksum did not verify)\n"),
              std::string::npos);
    EXPECT_EQ(assess("changed.pkg").status, 3);
    EXPECT_EQ(assess("changed.pkg").errors.find("changed.pkg: rejected (xar: the checksum of "), 0U);
    EXPECT_EQ(check("grafted.pkg").status, 0);
    EXPECT_EQ(check("grafted.pkg").output.find("Notarization"), std::string::npos);
    EXPECT_EQ(assess("grafted.pkg").errors,
              "grafted.pkg: rejected (the stapled ticket is for another package; no online lookup was done)\n");
}

} // namespace
} // namespace corvane
