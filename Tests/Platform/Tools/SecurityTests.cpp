#include "Support/FileManager.hpp"
#include "Tests/Platform/Tools/PseudoTerminal.hpp"
#include "Tests/Platform/Tools/SigningFixture.hpp"

namespace corvane {
namespace {

using TestSupport::Credential;
using TestSupport::Outcome;
using TestSupport::TestHierarchy;

class Security : public TestSupport::SigningFixture {
  protected:
    std::string list() const { return expectGood("security", {"find-identity", "-v", "-p", "basic"}).output; }
};

std::string line(int number, const Credential& identity) {
    return "  " + std::to_string(number) + ") " + identity.sha1 + " \"" + identity.name + "\"\n";
}

TEST_F(Security, listsOnlyIdentitiesThatCanSign) {
    EXPECT_EQ(list(), "     0 valid identities found\n");
    TestHierarchy& stranger = TestHierarchy::stranger();
    for (const Credential* each : {&hierarchy().installer(), &hierarchy().application(),
                                   &hierarchy().expiredInstaller(), &hierarchy().timestampAuthority()}) {
        import(hierarchy().pem(*each));
    }
    import(stranger.pem(stranger.installer()));
    EXPECT_EQ(list(), line(1, hierarchy().application()) + line(2, hierarchy().installer()) +
                          "     2 valid identities found\n");
    expectGood("security", {"delete-identity", hierarchy().application().sha1});
    EXPECT_EQ(list(), line(1, hierarchy().installer()) + "     1 valid identities found\n");
}

TEST_F(Security, listsNothingFromAKeychainThatIsOpenToOthers) {
    import(hierarchy().pem(hierarchy().installer()));
    std::filesystem::permissions(keychain(), std::filesystem::perms(0755));
    const Outcome outcome = expectGood("security", {"find-identity", "-v", "-p", "basic"});
    EXPECT_EQ(outcome.output, "     0 valid identities found\n");
    EXPECT_NE(outcome.errors.find("is open to other users"), std::string::npos) << outcome.errors;
}

TEST_F(Security, importsOldAndNewExports) {
    const Credential& installer = hierarchy().installer();
    sandbox.write("passphrase", "secret\n");
    for (const bool legacy : {false, true}) {
        const FileURL file = sandbox.write("export.p12", hierarchy().pkcs12(installer, "secret", legacy));
        const Outcome outcome = expectGood("security", {"import", file, "--passphrase-file", "passphrase"});
        EXPECT_EQ(outcome.output,
                  "security: imported the identity \"" + installer.name + "\" (" + installer.sha1 + ")\n");
        EXPECT_EQ(outcome.errors, "");
        EXPECT_EQ(list(), line(1, installer) + "     1 valid identities found\n");
        expectGood("security", {"delete-identity", installer.sha1});
    }
    const Outcome outcome = tool("security", {"import", "export.p12", "--passphrase-file", "passphrase"},
                                 {"OPENSSL_MODULES=" + sandbox.url().string()});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.errors.find("legacy provider, which is not installed"), std::string::npos) << outcome.errors;
}

TEST_F(Security, refusesWhatItCannotUse) {
    sandbox.write("wrong", "wrong");
    sandbox.write("text", "no certificate");
    sandbox.write("intermediate.pem", hierarchy().intermediate().certificate);
    sandbox.write("installer.pem", hierarchy().installer().certificate);
    sandbox.write("export.p12", hierarchy().pkcs12(hierarchy().installer(), "secret"));
    sandbox.write("alone.pem", hierarchy().installer().key + hierarchy().root().certificate);
    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string error;
    } cases[] = {
        {{"import", "export.p12", "--passphrase-file", "wrong"}, 1, "security: export.p12: the passphrase is wrong"},
        {{"import", "export.p12", "--passphrase-file", "none"}, 1, "No such file"},
        {{"import", "alone.pem"}, 1, "no certificate belongs to the private key"},
        {{"import", "none.p12"}, 1, "No such file"},
        {{"add-trusted-cert", "text"}, 1, "text: not a certificate"},
        {{"add-trusted-cert", "installer.pem"}, 1, "is not the root of a certificate authority"},
        {{"add-trusted-cert", "intermediate.pem"}, 1, "is not the root of a certificate authority"},
        {{"set-timestamp-authority", "file:///etc/passwd"}, 1, "is no address"},
        {{"delete-identity", "00"}, 1, "no identity with the fingerprint"},
        {{}, 64, "Usage: security"},
        {{"find-identity", "-v"}, 64, "Usage: security"},
        {{"import"}, 64, "Usage: security"},
        {{"import", "export.p12", "--passphrase-file"}, 64, "Usage: security"},
        {{"import", "export.p12", "secret"}, 64, "Usage: security"},
        {{"unlock-keychain", "x"}, 64, "Usage: security"},
    };
    for (const auto& expected : cases) {
        const Outcome outcome = tool("security", expected.arguments);
        EXPECT_EQ(outcome.status, expected.status) << expected.error;
        EXPECT_NE(outcome.errors.find(expected.error), std::string::npos) << outcome.errors;
    }
    EXPECT_EQ(list(), "     0 valid identities found\n");
}

/// A security process on a terminal of its own.
TestSupport::PseudoTerminal importOnTerminal(const FileURL& file, const FileURL& data) {
    return TestSupport::PseudoTerminal([&] {
        const std::string tool = TestSupport::program("libexec/corvane/security");
        ::setenv("XDG_DATA_HOME", data.c_str(), 1);
        ::execl(tool.c_str(), tool.c_str(), "import", file.c_str(), nullptr);
    });
}

TEST_F(Security, asksForThePassphraseOnTheTerminal) {
    const FileURL file = sandbox.write("export.p12", hierarchy().pkcs12(hierarchy().installer(), "secret"));
    const auto terminal = importOnTerminal(file, sandbox / "data");
    terminal.readUntil("export.p12: ");
    EXPECT_FALSE(terminal.echoes());
    terminal.type("secret\n");
    EXPECT_EQ(terminal.readUntil().find("secret"), std::string::npos);
    EXPECT_EQ(terminal.wait(), 0);
    EXPECT_EQ(list(), line(1, hierarchy().installer()) + "     1 valid identities found\n");
}

TEST_F(Security, leavesTheTerminalAsItWasWhenInterrupted) {
    const FileURL file = sandbox.write("export.p12", hierarchy().pkcs12(hierarchy().installer(), "secret"));
    const auto terminal = importOnTerminal(file, sandbox / "data");
    terminal.readUntil("export.p12: ");
    terminal.type("sec\x03");
    EXPECT_EQ(terminal.wait(), 128 + SIGINT);
    EXPECT_TRUE(terminal.echoes());
}

} // namespace
} // namespace corvane
