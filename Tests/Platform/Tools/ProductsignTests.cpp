#include "Platform/Formats/PackageSignature/PackageSignature.hpp"
#include "Platform/Trust/Keychain.hpp"
#include "Support/FileManager.hpp"
#include "Tests/Platform/Tools/SigningFixture.hpp"
#include "Tests/TimestampServer.hpp"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>

namespace corvane {
namespace {

using TestSupport::Credential;
using TestSupport::Outcome;
using TestSupport::TestHierarchy;
using TestSupport::TimestampBehaviour;
using TestSupport::TimestampServer;

class Productsign : public TestSupport::SigningFixture {
  protected:
    Productsign() {
        sandbox.write("product/Distribution", "<installer-gui-script minSpecVersion=\"1\"/>\n");
        expectGood("pkgutil", {"--flatten", "product", "in.pkg"});
        import(hierarchy().pem(hierarchy().installer()));
    }

    Outcome sign(std::vector<std::string> arguments) const { return tool("productsign", std::move(arguments)); }

    void useAuthority(const TimestampServer& server) const {
        expectGood("security", {"set-timestamp-authority", server.url()});
    }

    PackageSignature judged(const std::string& package) const {
        const TrustSettings settings = Keychain(keychain()).trustSettings(currentTime());
        return PackageSignature::evaluate(Xar::Archive::openUnverified(sandbox / package), settings);
    }

    const std::string name = hierarchy().installer().name;
};

/// The rule by which the product tries again: the authority may answer later.
bool isRetried(std::string errors) {
    std::transform(errors.begin(), errors.end(), errors.begin(),
                   [](unsigned char letter) { return std::tolower(letter); });
    const auto contains = [&](std::string_view phrase) { return errors.find(phrase) != std::string::npos; };
    return contains("a timestamp was expected but was not found") || contains("timestamp service is not available") ||
           contains("timestamp authority is not available") || contains("-67882");
}

TEST_F(Productsign, signsWithATrustedTimestamp) {
    const TimestampServer server;
    useAuthority(server);
    const Outcome outcome = sign({"--sign", name, "in.pkg", "out.pkg"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.errors, "productsign: using timestamp authority for signature\n"
                              "productsign: signing product with identity \"" +
                                  name + "\" from keychain " + keychain().string() +
                                  "\n"
                                  "productsign: adding certificate \"" +
                                  hierarchy().intermediate().name +
                                  "\"\n"
                                  "productsign: adding certificate \"" +
                                  hierarchy().root().name +
                                  "\"\n"
                                  "productsign: Wrote signed product archive to out.pkg\n");
    const PackageSignature signature = judged("out.pkg");
    EXPECT_EQ(signature.seal, PackageSignature::Seal::intact) << signature.problem;
    EXPECT_TRUE(signature.timestamp.has_value());
    EXPECT_EQ(signature.chain.owner, AnchorOwner::administrator);
    const auto mask = ::umask(0);
    ::umask(mask);
    EXPECT_EQ(std::filesystem::status(sandbox / "out.pkg").permissions(), std::filesystem::perms(0666 & ~mask));
}

TEST_F(Productsign, signsAlikeWithoutATimestampAtASetTime) {
    for (const char* output : {"first.pkg", "second.pkg"}) {
        const Outcome outcome =
            tool("productsign", {"--timestamp=none", "--sign", hierarchy().installer().sha1, "in.pkg", output},
                 {"SOURCE_DATE_EPOCH=1700000000"});
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
    }
    EXPECT_TRUE(TestSupport::read(sandbox / "first.pkg") == TestSupport::read(sandbox / "second.pkg"));
    EXPECT_FALSE(judged("first.pkg").timestamp.has_value());
}

TEST_F(Productsign, tellsTimestampFailuresApart) {
    using enum TimestampBehaviour;
    const struct {
        TimestampBehaviour behaviour;
        std::string text;
        bool retried;
    } cases[] = {
        {refusing, "The timestamp service is not available. (-67885)", true},
        {unavailable, "The timestamp service is not available. (-67885)", true},
        {rejected, "A timestamp was expected but was not found. (-67882)", true},
        {wrongImprint, "The timestamp was not valid. (-67883)", false},
        {stranger, "The timestamp was not trusted. (-67884)", false},
    };
    sandbox.write("out.pkg", "older");
    for (const auto& expected : cases) {
        const TimestampServer server({expected.behaviour});
        useAuthority(server);
        const Outcome outcome = sign({"--sign", name, "in.pkg", "out.pkg"});
        EXPECT_EQ(outcome.status, 1);
        const std::string start = "CMS signature encoding failed: " + expected.text +
                                  "\nproductsign: error: Failed to sign the product.\nproductsign: " + server.url() +
                                  ": ";
        EXPECT_NE(outcome.errors.find(start), std::string::npos) << outcome.errors;
        EXPECT_EQ(isRetried(outcome.errors), expected.retried) << outcome.errors;
        EXPECT_EQ(TestSupport::read(sandbox / "out.pkg"), "older");
    }
}

TEST_F(Productsign, signsOnlyWithAnInstallerIdentity) {
    TestHierarchy& stranger = TestHierarchy::stranger();
    for (const Credential* each : {&hierarchy().application(), &hierarchy().expiredInstaller(),
                                   &hierarchy().ellipticInstaller(), &hierarchy().timestampAuthority()}) {
        import(hierarchy().pem(*each));
    }
    import(stranger.pem(stranger.installer()));
    const struct {
        std::string identity, error;
    } cases[] = {
        {"Developer ID Installer", ""},
        {hierarchy().application().name, " An installer signing identity (not an application signing identity) is "
                                         "required for signing flat-style products."},
        {hierarchy().expiredInstaller().name,
         "\nproductsign: the identity is not valid: a certificate of its chain has expired"},
        {hierarchy().timestampAuthority().name,
         "\nproductsign: the identity is not valid: the certificate is not for this use"},
        {stranger.installer().sha1, "\nproductsign: the identity is not valid: the certificate of its issuer, " +
                                        stranger.root().name + ", is missing"},
    };
    for (const auto& expected : cases) {
        const Outcome outcome = sign({"--timestamp=none", "--sign", expected.identity, "in.pkg", "out.pkg"});
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.errors, "productsign: error: Could not find appropriate signing identity for “" +
                                      expected.identity + "”." + expected.error + "\n");
        EXPECT_FALSE(isRetried(outcome.errors));
    }
    const Outcome elliptic =
        sign({"--timestamp=none", "--sign", hierarchy().ellipticInstaller().name, "in.pkg", "out.pkg"});
    EXPECT_EQ(elliptic.status, 1);
    EXPECT_NE(elliptic.errors.find("needs an RSA key"), std::string::npos) << elliptic.errors;
    EXPECT_FALSE(FileManager::fileExists(sandbox / "out.pkg"));
}

TEST_F(Productsign, asksForAFingerprintWhereANameIsNotEnough) {
    import(hierarchy().pem(hierarchy().renewedInstaller()));
    const Outcome outcome = sign({"--timestamp=none", "--sign", name, "in.pkg", "out.pkg"});
    EXPECT_EQ(outcome.status, 1);
    for (const Credential* each : {&hierarchy().installer(), &hierarchy().renewedInstaller()}) {
        EXPECT_NE(outcome.errors.find("\n  " + each->sha1), std::string::npos) << outcome.errors;
        EXPECT_EQ(sign({"--timestamp=none", "--sign", each->sha1, "in.pkg", "out.pkg"}).status, 0);
        EXPECT_EQ(judged("out.pkg").leaf().der(), Certificate::parse(each->certificate, "test").der());
    }
}

TEST_F(Productsign, refusesOtherCallsAndDamagedInput) {
    std::string bytes = TestSupport::read(sandbox / "in.pkg");
    bytes[60] = static_cast<char>(bytes[60] ^ 1);
    sandbox.write("damaged.pkg", bytes);
    std::filesystem::create_symlink("in.pkg", sandbox / "link.pkg");
    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string error;
    } cases[] = {
        {{"--sign", name, "damaged.pkg", "out.pkg"}, 1, "productsign: error: Cannot sign damaged.pkg: "},
        {{"--sign", name, "none.pkg", "out.pkg"}, 1, "No such file or directory"},
        {{"--timestamp=none", "--sign", name, "in.pkg", "none/out.pkg"}, 1, "No such file or directory"},
        {{"--sign", name, "in.pkg", "./in.pkg"}, 1, "cannot take the place"},
        {{"--sign", name, "in.pkg", "link.pkg"}, 1, "cannot take the place"},
        {{"--sign", name, "in.pkg"}, 64, "Usage: productsign"},
        {{"in.pkg", "out.pkg"}, 64, "Usage: productsign"},
        {{"--timestamp=maybe", "--sign", name, "in.pkg", "out.pkg"}, 64, "Usage: productsign"},
    };
    for (const auto& expected : cases) {
        const Outcome outcome = sign(expected.arguments);
        EXPECT_EQ(outcome.status, expected.status) << expected.error;
        EXPECT_NE(outcome.errors.find(expected.error), std::string::npos) << outcome.errors;
    }
    EXPECT_FALSE(FileManager::fileExists(sandbox / "out.pkg"));
}

TEST_F(Productsign, leavesNothingWhenItIsEndedWhileItWaits) {
    const TimestampServer server({TimestampBehaviour::silent});
    useAuthority(server);
    const std::size_t before = FileManager::contentsOfDirectory(sandbox.url()).size();
    const std::string tool = TestSupport::program("libexec/corvane/productsign");
    const pid_t child = ::fork();
    if (child == 0) {
        ::setenv("XDG_DATA_HOME", (sandbox / "data").c_str(), 1);
        ::dup2(::open("/dev/null", O_WRONLY), STDERR_FILENO);
        ::execl(tool.c_str(), tool.c_str(), "--sign", name.c_str(), (sandbox / "in.pkg").c_str(),
                (sandbox / "out.pkg").c_str(), nullptr);
        ::_exit(127);
    }
    int status = 0;
    while (server.requestCount() == 0) {
        ASSERT_EQ(::waitpid(child, &status, WNOHANG), 0) << "the tool has ended by itself: " << status;
    }
    ::kill(child, SIGTERM);
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);
    EXPECT_EQ(FileManager::contentsOfDirectory(sandbox.url()).size(), before);
}

} // namespace
} // namespace corvane
