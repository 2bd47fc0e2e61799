// The whole `sign` job with the real portable tools, and what it leaves when things go wrong.

#include "Platform/Formats/Digest.hpp"
#include "Platform/Formats/Xar/Archive.hpp"
#include "Support/FileManager.hpp"
#include "Tests/EndToEnd/SigningMachine.hpp"

#include <sys/stat.h>
#include <unistd.h>

namespace corvane {
namespace {

using namespace TestSupport;
using Behaviour = TimestampBehaviour;
using Strings = std::vector<std::string>;

class SignTest : public testing::Test {
  protected:
    explicit SignTest(std::vector<Behaviour> timestamps = {Behaviour::good}) : machine(std::move(timestamps)) {}

    Outcome sign(const FileURL& package, const Strings& options = {"--allow-untrusted"}) const {
        Strings arguments{"sign",         package.string(),          "--sign", machine.identity(),
                          "--output-dir", (machine / "out").string()};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return machine.corvane(arguments);
    }

    void expectNothingTemporary() const { EXPECT_EQ(machine.temporaryFiles(), Strings{}); }

    /// Only this call of the job's tools runs the script; all others just run.
    void atCall(const std::string& tool, int call, const std::string& script) const {
        for (const std::string& each : jobTools) machine.before(each, "");
        machine.before(tool, "if test $call = " + std::to_string(call) + "; then " + script + "; fi");
    }

    SigningMachine machine;
    const std::string interruptUs = "kill -INT " + std::to_string(::getpid());
};

/// The calls of the job in order: a tool, and which of its calls.
const std::vector<std::pair<std::string, int>> callsOfTheJob{
    {"pkgutil", 1}, {"spctl", 1}, {"productsign", 1}, {"pkgutil", 2}, {"installer", 1}};

using StoredData = std::map<std::string, std::string>;

void collectData(const Xar::Archive& archive, const std::vector<Xar::Entry>& entries, const std::string& folder,
                 StoredData& data) {
    for (const Xar::Entry& entry : entries) {
        if (entry.data) data[folder + entry.name] = archive.heapBytes(entry.data->stored, std::size_t{1} << 30);
        collectData(archive, entry.children, folder + entry.name + "/", data);
    }
}

/// The bytes of each entry's data, by path, as they lie in the heap.
StoredData storedData(const FileURL& package) {
    const auto archive = Xar::Archive::open(package);
    StoredData data;
    collectData(archive, archive.contents().entries, "", data);
    return data;
}

/// Checks a signed package with readers that are not ours.
void expectSoundSignature(const SigningMachine& machine, const FileURL& package) {
    EXPECT_EQ(run({"7zz", "t", "-txar", package.string()}).status, 0);
    const auto archive = Xar::Archive::open(package);
    const std::string checksum = digest(DigestKind::sha1, archive.compressedContents());
    const FileURL content = machine.sandbox().write("check/checksum", checksum);
    const FileURL cms = machine.sandbox().write("check/cms", read(package).substr(archive.heapOffset() + 276, 9216));
    const Outcome verified =
        run({"openssl", "cms", "-verify", "-binary", "-inform", "DER", "-in", cms.string(), "-content",
             content.string(), "-CAfile", (machine / "root.pem").string(), "-purpose", "any", "-ignore_critical"});
    EXPECT_EQ(verified.status, 0) << verified.errors;
    EXPECT_EQ(verified.output, checksum);
}

TEST_F(SignTest, signsAProductThatIndependentReadersAccept) {
    const FileURL input = machine.makeProduct();
    const std::string before = read(input);
    const Outcome outcome = sign(input);
    const FileURL output = machine / "out/Harbor Tools-signed.pkg";
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, output.string() + "\n");
    EXPECT_EQ(outcome.errors,
              "==> Verify input trust\n    Input signature: no signature\n"
              "    WARNING: Gatekeeper rejects the input pkg (continuing)\n==> Sign\n    Signing with: " +
                  machine.identity() + "\n==> Verify result\n");
    expectNothingTemporary();
    expectSoundSignature(machine, output);
    EXPECT_EQ(storedData(output), storedData(input));
    EXPECT_EQ(read(input), before);
    const Outcome report = run({program("libexec/corvane/pkgutil").string(), "--check-signature", output.string()});
    EXPECT_EQ(report.status, 0);
    EXPECT_NE(report.output.find("Signed with a trusted timestamp on: "), std::string::npos) << report.output;
}

TEST_F(SignTest, signsWhatIsSignedAlreadyAndReplacesWhatStandsAtTheOutput) {
    const FileURL input = machine.makeProduct();
    ASSERT_EQ(sign(input).status, 0);
    std::filesystem::rename(machine / "out/Harbor Tools-signed.pkg", machine / "in/Again.pkg");
    const FileURL output = machine.sandbox().write("out/Again-signed.pkg", "earlier");
    EXPECT_EQ(sign(machine / "in/Again.pkg").status, 0);
    expectSoundSignature(machine, output);
    EXPECT_EQ(storedData(output), storedData(input));
    EXPECT_EQ(machine.outputFiles(), Strings{"Again-signed.pkg"});
}

TEST_F(SignTest, signsRealPackages) {
    CORVANE_REQUIRE_SAMPLES();
    for (const char* name : {"munkitools-2.8.1.2847-unsigned", "relic-dummy-product", "nudge-launchagent-1.0.1-signed",
                             "karabiner-vhid-7.3.0-stapled-2026", "ch34xvcp-1.9-stapled", "foreign-osx-pkg-node"}) {
        const FileURL input = *samples() / "pkg" / (std::string(name) + ".pkg");
        const Outcome outcome = sign(input);
        ASSERT_EQ(outcome.status, 0) << name << "\n" << outcome.errors;
        const FileURL output = machine / ("out/" + std::string(name) + "-signed.pkg");
        expectSoundSignature(machine, output);
        EXPECT_EQ(storedData(output), storedData(input)) << name;
    }
    expectNothingTemporary();
}

TEST_F(SignTest, refusesAnInputThatIsNotTrustedOrNoPackage) {
    Outcome outcome = sign(machine.makeProduct(), {});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(outcome.errors.ends_with("corvane: Gatekeeper rejects the input pkg (unsigned or not notarized)\n"))
        << outcome.errors;
    for (const char* content : {"", "no package", "xar!"}) {
        outcome = sign(machine.sandbox().write("in/Broken.pkg", content));
        EXPECT_EQ(outcome.status, 1);
        EXPECT_NE(outcome.errors.find("    Input signature: unreadable\n"), std::string::npos) << outcome.errors;
        EXPECT_NE(outcome.errors.find("corvane: productsign with trusted timestamp failed (exit 1): "),
                  std::string::npos)
            << outcome.errors;
    }
    EXPECT_EQ(machine.outputFiles(), Strings{});
    expectNothingTemporary();
}

/// What the time-stamp authority does, whether signing without it is allowed, and how the job ends.
struct TimestampCase {
    const char* name;
    Behaviour behaviour;
    bool allowed;
    std::size_t attempts;
    std::int32_t status;
    const char* text;
};

class TimestampTest : public SignTest, public testing::WithParamInterface<TimestampCase> {
  protected:
    TimestampTest() : SignTest({GetParam().behaviour}) {}
};

TEST_P(TimestampTest, followsThePolicy) {
    const TimestampCase& expected = GetParam();
    Strings options{"--allow-untrusted"};
    if (expected.allowed) options.push_back("--allow-untimestamped-signature");
    const Outcome outcome = sign(machine.makeProduct(), options);
    EXPECT_EQ(outcome.status, expected.status) << outcome.errors;
    EXPECT_NE(outcome.errors.find(expected.text), std::string::npos) << outcome.errors;
    EXPECT_EQ(read(machine / "productsign.calls").size(), expected.attempts);
    EXPECT_EQ(machine.outputFiles().size(), expected.status == 0 ? 1U : 0U);
    expectNothingTemporary();
}

constexpr const char* approved = "WARNING: User approved signing without a trusted timestamp";
constexpr const char* refused = "corvane: trusted timestamp unavailable after three retries; rerun with";

INSTANTIATE_TEST_SUITE_P(Authority, TimestampTest,
                         testing::Values(TimestampCase{"refusing", Behaviour::refusing, false, 4, 1, refused},
                                         TimestampCase{"refusingAllowed", Behaviour::refusing, true, 5, 0, approved},
                                         TimestampCase{"unavailable", Behaviour::unavailable, false, 4, 1, refused},
                                         TimestampCase{"unavailableAllowed", Behaviour::unavailable, true, 5, 0,
                                                       approved},
                                         TimestampCase{"withoutToken", Behaviour::withoutToken, false, 4, 1, refused},
                                         TimestampCase{"rejectedAllowed", Behaviour::rejected, true, 5, 0, approved},
                                         TimestampCase{"wrongNonce", Behaviour::wrongNonce, true, 1, 1, "(-67883)"},
                                         TimestampCase{"wrongImprint", Behaviour::wrongImprint, true, 1, 1, "(-67883)"},
                                         TimestampCase{"damaged", Behaviour::damaged, true, 1, 1, "(-67883)"},
                                         TimestampCase{"stranger", Behaviour::stranger, true, 1, 1, "(-67884)"}),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_F(SignTest, anInterruptAtAnyCallLeavesTheOutputFolderAlone) {
    const FileURL package = machine.makeProduct();
    const FileURL output = machine.sandbox().write("out/Harbor Tools-signed.pkg", "earlier");
    for (const auto& [tool, call] : callsOfTheJob) {
        atCall(tool, call, interruptUs + "; sleep 100");
        const Outcome outcome = sign(package);
        EXPECT_EQ(outcome.status, 130) << tool << call << outcome.errors;
        EXPECT_TRUE(outcome.errors.ends_with("corvane: cancelled\n"));
        EXPECT_EQ(read(output), "earlier");
        EXPECT_EQ(machine.outputFiles().size(), 1U);
        expectNothingTemporary();
    }
}

TEST_F(SignTest, anInterruptWhileAToolEndsLeavesTheOldOrTheNewPackageWhole) {
    const FileURL package = machine.makeProduct();
    for (const auto& [tool, call] : callsOfTheJob) {
        const FileURL output = machine.sandbox().write("out/Harbor Tools-signed.pkg", "earlier");
        atCall(tool, call, "\"$real\" \"$@\"; status=$?; " + interruptUs + "; exit $status");
        const Outcome outcome = sign(package);
        if (outcome.status == 130) {
            EXPECT_EQ(read(output), "earlier");
        } else {
            EXPECT_EQ(outcome.status, 0) << outcome.errors;
            expectSoundSignature(machine, output);
        }
        EXPECT_EQ(machine.outputFiles().size(), 1U);
        expectNothingTemporary();
    }
}

TEST_F(SignTest, anyCallMayFailOrDieAndTheJobStillCleansUp) {
    const FileURL package = machine.makeProduct();
    const std::pair<const char*, const char*> failures[] = {
        {"exit 7", "(exit 7)"}, {"kill -KILL $$", "(exit 9)"}, {"kill -SEGV $$", "(exit 11)"}};
    for (const auto& [script, text] : failures) {
        for (std::size_t index = 2; index < callsOfTheJob.size(); ++index) { // what comes first only judges the input
            atCall(callsOfTheJob[index].first, callsOfTheJob[index].second, script);
            const Outcome outcome = sign(package);
            EXPECT_EQ(outcome.status, 1) << index;
            EXPECT_NE(outcome.errors.find(text), std::string::npos) << outcome.errors;
            EXPECT_EQ(machine.outputFiles(), Strings{});
            expectNothingTemporary();
        }
    }
}

TEST_F(SignTest, anInputThatVanishesFailsTheJobWhileItIsNeeded) {
    for (const auto& [tool, call] : callsOfTheJob) {
        const FileURL package = machine.makeProduct("Vanishing.pkg");
        atCall(tool, call, "rm -f '" + package.string() + "'");
        const Outcome outcome = sign(package);
        const bool isSignedAlready = call == 2 || tool == "installer";
        EXPECT_EQ(outcome.status, isSignedAlready ? 0 : 1) << tool << call << outcome.errors;
        EXPECT_EQ(machine.outputFiles().size(), isSignedAlready ? 1U : 0U);
        if (!isSignedAlready) {
            EXPECT_NE(outcome.errors.find(package.string()), std::string::npos) << outcome.errors;
        }
        expectNothingTemporary();
        FileManager::removeItem(machine / "out");
        FileManager::createDirectory(machine / "out");
    }
}

TEST_F(SignTest, anOutputFolderThatVanishesOrClosesFailsThePlacingAlone) {
    const FileURL package = machine.makeProduct();
    const std::string out = (machine / "out").string();
    atCall("installer", 1, "rmdir " + out);
    Outcome outcome = sign(package);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.errors.find("corvane: Cannot move "), std::string::npos) << outcome.errors;
    expectNothingTemporary();
    if (::geteuid() == 0) GTEST_SKIP() << "folders are never closed to root";
    FileManager::createDirectory(out);
    atCall("installer", 1, "chmod 555 " + out);
    outcome = sign(package);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(outcome.errors.ends_with(": Permission denied\n")) << outcome.errors;
    EXPECT_EQ(machine.outputFiles(), Strings{});
    expectNothingTemporary();
}

TEST_F(SignTest, aPackageThatCannotBeReadIsNamed) {
    if (::geteuid() == 0) GTEST_SKIP() << "root reads everything";
    const FileURL package = machine.makeProduct();
    ::chmod(package.c_str(), 0);
    const Outcome outcome = sign(package);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.errors.find(package.string()), std::string::npos);
    EXPECT_NE(outcome.errors.find("Permission denied"), std::string::npos) << outcome.errors;
    expectNothingTemporary();
}

} // namespace
} // namespace corvane
