#include "Services/PackagingPipeline.hpp"
#include "Services/PackagingPipeline/Context.hpp"
#include "Services/PackagingPipeline/ProductSigning.hpp"
#include "Services/PackagingPipeline/ResultVerification.hpp"
#include "Support/CancellationError.hpp"
#include "Support/FileManager.hpp"
#include "Tests/FakeTools.hpp"
#include "Tests/Services/EventLine.hpp"

namespace corvane {
namespace {

using TestSupport::FakeTools;
using TestSupport::line;
using TestSupport::read;
using namespace std::chrono_literals;

/// A package on a system whose tools all succeed.
class PipelineTest : public testing::Test {
  protected:
    PipelineTest() {
        fakes.tool("pkgutil", "echo 'Package \"x\":'; echo '   Status: signed by someone: \t'");
        fakes.tool("spctl", "");
        fakes.tool("installer", "");
        fakes.tool("productsign", "shift $(($# - 4)); printf 'signed ' | cat - \"$3\" > \"$4\"");
        fakes.sandbox().write("in/Tool-1.2.pkg", "content");
        FileManager::createDirectory(out);
    }

    PipelineConfiguration configuration() const {
        return {.action = PipelineAction::signOnly,
                .inputURL = fakes.sandbox() / "in/Tool-1.2.pkg",
                .outputDirectory = out,
                .signingIdentity = "Developer ID Installer: A (T)"};
    }

    using Lines = std::vector<std::string>;

    /// All events of a job, with what `answer` does when it sees one.
    Lines events(const PipelineConfiguration& asked,
                 const std::function<void(const PackagingPipeline::Job&, const std::string&)>& answer = {}) const {
        const auto job = PackagingPipeline(asked, {.firstSigningRetry = 0ms}).start();
        Lines lines;
        while (const auto event = job.events.next()) {
            lines.push_back(line(*event));
            if (answer) answer(job, lines.back());
        }
        job.waitUntilDone();
        EXPECT_TRUE(workFolders().empty());
        return lines;
    }

    /// The work folders that jobs of these tests were given and left behind.
    Lines workFolders() const {
        Lines left;
        for (const std::string& call : fakes.calls()) {
            const auto at = call.find("/corvane-");
            if (at == std::string::npos) continue;
            const std::string folder = call.substr(0, call.find('/', at + 1));
            const std::string path = folder.substr(folder.rfind('|') + 1);
            if (FileManager::fileExists(path)) left.push_back(path);
        }
        return left;
    }

    FakeTools fakes;
    FileURL out = fakes.sandbox() / "out";
};

TEST_F(PipelineTest, signsAndVerifiesWithoutTouchingTheContent) {
    EXPECT_EQ(events(configuration()),
              (Lines{"> Verify input trust", "Input signature: signed by someone:", "< Verify input trust", "> Sign",
                     "Signing with: Developer ID Installer: A (T)", "< Sign", "> Verify result", "< Verify result",
                     "finished Tool-1.2-signed.pkg"}));
    EXPECT_EQ(read(out / "Tool-1.2-signed.pkg"), "signed content");
    const std::string input = configuration().inputURL.string();
    const Lines calls = fakes.calls();
    ASSERT_EQ(calls.size(), 5U);
    const std::string candidate = calls[2].substr(calls[2].rfind('|') + 1);
    EXPECT_EQ(calls, (Lines{"pkgutil|--check-signature|" + input, "spctl|--assess|--type|install|" + input,
                            "productsign|--sign|Developer ID Installer: A (T)|" + input + "|" + candidate,
                            "pkgutil|--check-signature|" + candidate, "installer|-pkginfo|-pkg|" + candidate}));
    EXPECT_EQ(lastPathComponent(candidate), "signed.pkg");
}

TEST_F(PipelineTest, failsWithTheFirstToolThatDoesAndLeavesTheOutputFolderAlone) {
    fakes.sandbox().write("out/Tool-1.2-signed.pkg", "earlier");
    const struct {
        const char* tool;
        const char* script;
        const char* terminal;
    } cases[] = {
        {"spctl", "exit 3", "failed Gatekeeper rejects the input pkg (unsigned or not notarized)"},
        {"productsign", "echo 'no identity' >&2; exit 1",
         "failed productsign with trusted timestamp failed (exit 1): no identity"},
        {"pkgutil", "test $call = 1 || { echo bad >&2; exit 9; }", "failed pkgutil failed (exit 9): bad"},
        {"installer", "exit 2", "failed installer refuses to read the pkg failed (exit 2)"},
    };
    for (const auto& [tool, script, terminal] : cases) {
        const std::string before = read(fakes.sandbox() / "tools" / tool);
        fakes.tool(tool, script);
        std::filesystem::remove(fakes.sandbox() / (std::string(tool) + ".calls"));
        EXPECT_EQ(events(configuration()).back(), terminal);
        fakes.sandbox().write("tools/" + std::string(tool), before);
        EXPECT_EQ(read(out / "Tool-1.2-signed.pkg"), "earlier");
    }
    std::filesystem::remove(fakes.sandbox() / "tools/installer");
    EXPECT_EQ(events(configuration()).back().find("failed Cannot run "), 0U);
}

TEST_F(PipelineTest, namesTheOutputAfterTheInputAlone) {
    PipelineConfiguration asked = configuration();
    const std::pair<const char*, const char*> names[] = {
        {"in/.pkg", "-signed.pkg"}, {"in/Tool", "Tool-signed.pkg"}, {"in/a.b.pkg", "a.b-signed.pkg"}};
    for (const auto& [input, output] : names) {
        asked.inputURL = fakes.sandbox().write(input, "content");
        EXPECT_EQ(events(asked).back(), std::string("finished ") + output);
    }
    fakes.tool("productsign", R"(printf 'a\0b' >&2; exit 1)");
    const std::string failure = "failed productsign with trusted timestamp failed (exit 1): a";
    EXPECT_EQ(events(asked).back(), failure + std::string("\0b", 2));
}

TEST_F(PipelineTest, enforcesTheSizeLimitExclusively) {
    PipelineConfiguration asked = configuration();
    const std::string size = std::to_string(std::string("signed content").size());
    asked.maximumOutputBytesExclusive = 14;
    EXPECT_EQ(events(asked).back(), "failed Finished package is " + size + " bytes; required size is below 14 bytes");
    asked.maximumOutputBytesExclusive = 15;
    const Lines lines = events(asked);
    EXPECT_EQ(lines[lines.size() - 3], "Output size gate passed: 14 bytes < 15 bytes");
}

TEST_F(PipelineTest, letsARejectedInputThroughOnRequestAndReadsAnyStatus) {
    const std::pair<const char*, const char*> statuses[] = {
        {"echo '   Status: no signature'; exit 1", "Input signature: no signature"},
        {"echo 'nothing of the kind'", "Input signature: unreadable"},
        {"echo 'Status:'", "Input signature: Status"},
        {"printf 'Status: a\\r\\nStatus: b\\n'", "Input signature: a\r"},
    };
    fakes.tool("spctl", "exit 3");
    PipelineConfiguration asked = configuration();
    asked.allowUntrustedInput = true;
    asked.signingIdentity = std::nullopt;
    for (const auto& [script, message] : statuses) {
        fakes.tool("pkgutil", script);
        EXPECT_EQ(events(asked),
                  (Lines{"> Verify input trust", message, "WARNING: Gatekeeper rejects the input pkg (continuing)",
                         "< Verify input trust", "failed Sign-only requires a signing identity in Settings"}));
    }
    std::filesystem::remove(fakes.sandbox() / "tools/pkgutil");
    EXPECT_EQ(events(asked)[1], "Input signature: unreadable");
}

TEST_F(PipelineTest, retriesForATimestampThenAsksThenSignsWithout) {
    fakes.tool("productsign", "test $1 = --timestamp=none && { shift; cp \"$3\" \"$4\"; exit 0; }\n"
                              "echo half > \"$4\"\necho 'The Timestamp Service is not available.' >&2; exit 1");
    const Lines retries{
        "Signing with: Developer ID Installer: A (T)",
        "Apple timestamp authority unavailable; retry 1 of 3",
        "Apple timestamp authority unavailable; retry 2 of 3",
        "Apple timestamp authority unavailable; retry 3 of 3",
        "Trusted timestamp unavailable after the initial attempt and 3 retries; waiting for explicit approval",
        "approval 3"};
    const auto from = [](const Lines& lines) { return Lines(lines.begin() + 4, lines.end()); };

    Lines approved = retries;
    approved.insert(approved.end(),
                    {"WARNING: User approved signing without a trusted timestamp; the signature is only "
                     "valid while the installer certificate remains valid",
                     "< Sign", "> Verify result", "< Verify result", "finished Tool-1.2-signed.pkg"});
    EXPECT_EQ(from(events(configuration(),
                          [](const auto& job, const std::string& event) {
                              if (event == "approval 3") job.continueWithoutTrustedTimestamp();
                          })),
              approved);
    EXPECT_EQ(from(events(configuration(),
                          [](const auto& job, const std::string& event) { // approved long before it is asked for
                              if (event == "> Verify input trust") job.continueWithoutTrustedTimestamp();
                          })),
              approved);

    Lines refused = retries;
    refused.push_back("cancelled");
    EXPECT_EQ(from(events(configuration(),
                          [](const auto& job, const std::string& event) {
                              if (event == "approval 3") job.cancel();
                          })),
              refused);
}

TEST_F(PipelineTest, doesNotRetryWithoutATimestamp) {
    fakes.tool("productsign", "echo '-67882' >&2; exit 5");
    EXPECT_EQ(
        events(configuration(), [](const auto& job, const std::string&) { job.continueWithoutTrustedTimestamp(); })
            .back(),
        "failed productsign without trusted timestamp failed (exit 5): -67882");
    fakes.tool(
        "productsign",
        "test $call -gt 7 && cp \"$3\" \"$4\" || { echo a timestamp was expected but was not found >&2; false; }");
    std::size_t retries = 0;
    for (const std::string& event : events(configuration()))
        retries += event.find("retry") != std::string::npos ? 1U : 0U;
    EXPECT_EQ(retries, 2U);
}

TEST_F(PipelineTest, judgesOnlyTheStandardErrorOfAFailedTool) {
    using Packaging::isTimestampAuthorityFailure;
    const auto failed = [](const char* text) { return PipelineError::toolFailed("productsign", 1, text); };
    for (const char* text :
         {"Error: A Timestamp Was Expected But Was Not Found.", "the timestamp SERVICE is not available",
          "Timestamp authority is not available", "OSStatus -67882"}) {
        EXPECT_TRUE(isTimestampAuthorityFailure(failed(text))) << text;
    }
    EXPECT_FALSE(isTimestampAuthorityFailure(failed("The identity was not found; timestamp")));
    EXPECT_FALSE(isTimestampAuthorityFailure(PipelineError::invalidInput("timestamp service is not available")));
    EXPECT_FALSE(isTimestampAuthorityFailure(LaunchError("timestamp service is not available")));
    EXPECT_FALSE(isTimestampAuthorityFailure(CancellationError()));
}

TEST_F(PipelineTest, cancelsDuringAToolARetryAndThroughADroppedStream) {
    fakes.tool("spctl", "echo > " + (fakes.sandbox() / "reached").string() + "; exec sleep 100");
    EXPECT_EQ(events(configuration(),
                     [](const auto& job, const std::string& event) {
                         if (event.find("Input signature") == 0) job.cancel();
                     })
                  .back(),
              "cancelled");
    {
        const auto job = PackagingPipeline(configuration()).start();
        while (line(*job.events.next()).find("Input signature") != 0) {
        }
    } // dropped while the tool runs: returns only when the job has ended
    EXPECT_TRUE(workFolders().empty());
    fakes.tool("spctl", "");
    fakes.tool("productsign", "echo timestamp service is not available >&2; exit 1");
    const auto job = PackagingPipeline(configuration(), {.firstSigningRetry = 1h}).start();
    std::string last;
    while (const auto event = job.events.next()) {
        last = line(*event);
        if (last.find("retry 1") != std::string::npos) job.cancel();
    }
    EXPECT_EQ(last, "cancelled");
    job.cancel(); // without effect on a finished job
}

TEST_F(PipelineTest, refusesWhatIsNoPartOfAJob) {
    PipelineConfiguration asked = configuration();
    asked.componentIdentifiersToRemove = {"com.x"};
    EXPECT_EQ(events(asked), Lines{"failed Component removal only applies to recompress jobs"});
    asked.action = PipelineAction::dmgToPkg;
    EXPECT_EQ(events(asked), Lines{"failed Component removal only applies to recompress jobs"});
}

TEST_F(PipelineTest, failsWhereThePlaceCannotBeWritten) {
    PipelineConfiguration asked = configuration();
    asked.outputDirectory = fakes.sandbox() / "missing";
    const std::string event = events(asked).back();
    EXPECT_EQ(event.find("failed Cannot move "), 0U) << event;
    EXPECT_NE(event.find("No such file or directory"), std::string::npos);
}

TEST_F(PipelineTest, cleanUpDetachesOnlyWhatTheJobAttached) {
    const auto cleanUp = [&](const char* script, bool owns) {
        std::filesystem::remove(fakes.sandbox() / "log");
        std::filesystem::remove(fakes.sandbox() / "hdiutil.calls");
        fakes.tool("hdiutil", script);
        auto [stream, continuation] = AsyncStream<PipelineEvent>::makeStream();
        std::stop_source cancelled;
        cancelled.request_stop();
        Packaging::Context context{.configuration = configuration(),
                                   .continuation = continuation,
                                   .mountInteractionGate = nullptr,
                                   .untimestampedSigningGate = nullptr,
                                   .workDirectory = fakes.sandbox() / "work",
                                   .mountPoint = fakes.sandbox() / "work/mnt",
                                   .ownsMount = owns,
                                   .stop = cancelled.get_token()};
        fakes.sandbox().write("work/mnt/file", "");
        context.cleanUp();
        continuation.finish();
        std::string lines;
        while (const auto event = stream.next()) lines += line(*event) + "\n";
        return lines;
    };
    const std::string mountPoint = (fakes.sandbox() / "work/mnt").string();
    const FileURL work = fakes.sandbox() / "work";
    EXPECT_EQ(cleanUp("", true), "");
    EXPECT_EQ(fakes.calls(), Lines{"hdiutil|detach|" + mountPoint + "|-quiet"});
    EXPECT_FALSE(FileManager::fileExists(work));
    EXPECT_EQ(cleanUp("test $call = 2", true), "");
    EXPECT_EQ(fakes.calls().back(), "hdiutil|detach|" + mountPoint + "|-force|-quiet");
    EXPECT_FALSE(FileManager::fileExists(work));
    EXPECT_EQ(cleanUp("exit 1", true),
              "WARNING: could not unmount " + mountPoint + " - leaving " + work.string() + "\n");
    EXPECT_TRUE(FileManager::fileExists(work));
    EXPECT_EQ(cleanUp("exit 1", false), "");
    EXPECT_TRUE(fakes.calls().empty());
    EXPECT_FALSE(FileManager::fileExists(work));
}

TEST_F(PipelineTest, readsAPropertyListValueThroughTheTool) {
    const Packaging::Context context{.configuration = configuration(),
                                     .continuation = AsyncStream<PipelineEvent>::makeStream().second,
                                     .mountInteractionGate = nullptr,
                                     .untimestampedSigningGate = nullptr,
                                     .workDirectory = {}};
    fakes.tool("plutil", "printf ' com.x \\n\\n'");
    EXPECT_EQ(Packaging::plistValue(context, "/a/Info.plist", "CFBundleIdentifier"), "com.x");
    EXPECT_EQ(fakes.calls(), Lines{"plutil|-extract|CFBundleIdentifier|raw|-o|-|/a/Info.plist"});
    fakes.tool("plutil", "exit 1");
    try {
        Packaging::plistValue(context, "/a/Info.plist", "CFBundleIdentifier");
        FAIL();
    } catch (const PipelineError& error) {
        EXPECT_EQ(error.errorDescription(), "Cannot read CFBundleIdentifier from Info.plist");
    }
}

} // namespace
} // namespace corvane
