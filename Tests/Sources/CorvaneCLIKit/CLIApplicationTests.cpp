#include "Sources/CorvaneCLIKit/CLIApplication.hpp"
#include "Sources/CorvaneCLIKit/InterruptController.hpp"
#include "Support/FileManager.hpp"
#include "Support/UniqueDescriptor.hpp"
#include "Support/WriteAll.hpp"
#include "Tests/FakeTools.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <thread>

namespace corvane {
namespace {

using TestSupport::FakeTools;
using namespace std::chrono_literals;

constexpr const char* identity = "Developer ID Installer: A (T)";

/// A terminal whose lines are kept, on a system whose tools all succeed.
class CLITest : public testing::Test {
  protected:
    CLITest() {
        fakes.tool("security", "echo '  1) 0A \"Developer ID Installer: A (T)\"'; echo '  2) 0B \"Other\"'");
        fakes.tool("pkgutil", R"(test "$1" = --expand || { echo '   Status: no signature'; exit 0; }
mkdir "$3" && echo '<pkg-info identifier="com.x" version="1"><scripts><postinstall file="./b"/><preinstall file="./a"/></scripts></pkg-info>' > "$3/PackageInfo")");
        fakes.tool("spctl", "");
        fakes.tool("installer", "");
        fakes.tool("productsign", "shift $(($# - 4)); cp \"$3\" \"$4\"");
        fakes.sandbox().write("in/Tool.pkg", "content");
    }

    std::int32_t run(std::vector<std::string> arguments) {
        output.clear();
        errors.clear();
        return application.run(arguments);
    }

    std::string path(std::string_view name) const { return (fakes.sandbox() / name).string(); }

    FakeTools fakes;
    std::string output;
    std::string errors;
    bool isTTY = false;
    std::optional<std::string> answer;
    CLIApplication application{std::make_shared<CLIStreams>([this](std::string_view text) { output += text; },
                                                            [this](std::string_view text) { errors += text; }),
                               [this] { return isTTY; },
                               [this] { return answer; },
                               {.firstSigningRetry = 0ms}};
};

std::string escaped(std::string path) {
    for (std::size_t at = 0; (at = path.find('/', at)) != std::string::npos; at += 2) path.insert(at, "\\");
    return path;
}

TEST_F(CLITest, printsHelpVersionAndArgumentErrors) {
    EXPECT_EQ(run({"--version"}), 0);
    EXPECT_EQ(output, "0.3.0\n");
    EXPECT_EQ(run({}), 0);
    EXPECT_EQ(output, std::string(CLIArgumentParser::usage) + "\n");
    EXPECT_EQ(run({"bogus"}), 64);
    EXPECT_EQ(errors, "corvane: Unknown command: bogus\n\n" + std::string(CLIArgumentParser::usage) + "\n");
    EXPECT_EQ(output, "");
    EXPECT_EQ(run({"a/b", "--json"}), 64);
    EXPECT_EQ(output, "{\"event\":\"failed\",\"exitCode\":64,\"message\":\"Unknown command: a\\/b\"}\n");
    EXPECT_EQ(errors, "");
}

TEST_F(CLITest, listsIdentities) {
    EXPECT_EQ(run({"identities"}), 0);
    EXPECT_EQ(output, "Developer ID Installer: A (T)\n");
    EXPECT_EQ(run({"identities", "--json"}), 0);
    EXPECT_EQ(output, "{\"event\":\"identities\",\"identities\":[\"Developer ID Installer: A (T)\"]}\n");
    fakes.tool("security", "echo '  1) 0A \"Developer ID Installer: A (T)\"'; exit 1");
    EXPECT_EQ(run({"identities"}), 0);
    EXPECT_EQ(output + errors, "No Developer ID Installer identities found.\n");
    EXPECT_EQ(run({"identities", "--json"}), 0);
    EXPECT_EQ(output, "{\"event\":\"identities\",\"identities\":[]}\n");
    EXPECT_EQ(fakes.calls().back(), "security|find-identity|-v|-p|basic");
}

TEST_F(CLITest, listsComponents) {
    EXPECT_EQ(run({"components", path("in/Tool.pkg")}), 0);
    EXPECT_EQ(output, "com.x\t1\tcomponent.pkg\t./a,./b\n");
    EXPECT_EQ(run({"components", "--json", path("in/Tool.pkg")}), 0);
    EXPECT_EQ(output,
              "{\"components\":[{\"archiveName\":\"component.pkg\",\"identifier\":\"com.x\",\"installLocation\":"
              "\"\\/\",\"scripts\":[\".\\/a\",\".\\/b\"],\"version\":\"1\"}],\"event\":\"components\"}\n");
    EXPECT_EQ(run({"components", path("in/Missing.pkg")}), 66);
    EXPECT_EQ(errors, "corvane: input file not found: " + path("in/Missing.pkg") + "\n");
    FileManager::createDirectory(path("in/Folder.pkg"));
    EXPECT_EQ(run({"components", path("in/Folder.pkg")}), 66);
    fakes.tool("pkgutil", "exit 1");
    EXPECT_EQ(run({"components", "--json", path("in/Tool.pkg")}), 1);
    EXPECT_EQ(output,
              "{\"event\":\"failed\",\"exitCode\":1,\"message\":\"Not a flat pkg, or metadata expansion failed\"}\n");
}

TEST_F(CLITest, runsAJobAsTextAndAsJSON) {
    EXPECT_EQ(run({"sign", path("in/Tool.pkg"), "--sign", identity}), 0);
    EXPECT_EQ(output, path("in/Tool-signed.pkg") + "\n");
    EXPECT_EQ(errors, "==> Verify input trust\n    Input signature: no signature\n==> Sign\n"
                      "    Signing with: Developer ID Installer: A (T)\n==> Verify result\n");
    EXPECT_EQ(run({"sign", path("in/Tool.pkg"), "--sign", identity, "--json"}), 0);
    EXPECT_EQ(output, "{\"event\":\"step-started\",\"step\":\"Verify input trust\"}\n"
                      "{\"event\":\"log\",\"message\":\"Input signature: no signature\"}\n"
                      "{\"event\":\"step-finished\",\"step\":\"Verify input trust\"}\n"
                      "{\"event\":\"step-started\",\"step\":\"Sign\"}\n"
                      "{\"event\":\"log\",\"message\":\"Signing with: Developer ID Installer: A (T)\"}\n"
                      "{\"event\":\"step-finished\",\"step\":\"Sign\"}\n"
                      "{\"event\":\"step-started\",\"step\":\"Verify result\"}\n"
                      "{\"event\":\"step-finished\",\"step\":\"Verify result\"}\n"
                      "{\"event\":\"finished\",\"output\":\"" +
                          escaped(path("in/Tool-signed.pkg")) + "\"}\n");
    EXPECT_EQ(errors, "");
}

TEST_F(CLITest, checksFilesAndIdentityBeforeAJobStarts) {
    EXPECT_EQ(run({"sign", path("in"), "--sign", identity}), 64);
    EXPECT_EQ(run({"sign", path("in/Missing.pkg"), "--sign", identity}), 66);
    EXPECT_EQ(errors, "corvane: input file not found: " + path("in/Missing.pkg") + "\n");
    EXPECT_EQ(run({"sign", path("in/Tool.pkg"), "--sign", identity, "--output-dir", path("in/Tool.pkg")}), 66);
    EXPECT_EQ(errors, "corvane: output directory not found: " + path("in/Tool.pkg") + "\n");
    EXPECT_EQ(run({"sign", path("in/Tool.pkg"), "--sign", "Other", "--json"}), 69);
    EXPECT_EQ(output, "{\"event\":\"failed\",\"exitCode\":69,\"message\":\"signing identity not found: Other\"}\n");
    EXPECT_EQ(fakes.calls(), std::vector<std::string>{"security|find-identity|-v|-p|basic"});
}

TEST_F(CLITest, reportsFailuresOfTheJob) {
    fakes.tool("spctl", "exit 3");
    EXPECT_EQ(run({"sign", path("in/Tool.pkg"), "--sign", identity}), 1);
    EXPECT_TRUE(errors.ends_with("\ncorvane: Gatekeeper rejects the input pkg (unsigned or not notarized)\n"));
}

TEST_F(CLITest, decidesAboutAMissingTimestampFromTheOptions) {
    fakes.tool("productsign", "test $1 = --timestamp=none || { echo -67882 >&2; exit 1; }; cp \"$4\" \"$5\"");
    const std::string message = "trusted timestamp unavailable after three retries; rerun with "
                                "--allow-untimestamped-signature only if you accept the reduced signature lifetime";
    EXPECT_EQ(run({"sign", path("in/Tool.pkg"), "--sign", identity}), 1);
    EXPECT_TRUE(errors.ends_with("waiting for explicit approval\ncorvane: " + message + "\n")) << errors;
    EXPECT_EQ(run({"sign", path("in/Tool.pkg"), "--sign", identity, "--json"}), 1);
    EXPECT_TRUE(output.ends_with("{\"event\":\"failed\",\"exitCode\":1,\"message\":\"" + message + "\"}\n"));
    EXPECT_EQ(run({"sign", path("in/Tool.pkg"), "--sign", identity, "--allow-untimestamped-signature"}), 0);
    EXPECT_NE(errors.find("    WARNING: --allow-untimestamped-signature approved signing without a trusted timestamp\n"
                          "    WARNING: User approved signing without a trusted timestamp; "),
              std::string::npos)
        << errors;
}

/// A job of which only the two ends of its stream are real.
class ScriptedJob {
    std::pair<AsyncStream<PipelineEvent>, AsyncStream<PipelineEvent>::Continuation> ends_ =
        AsyncStream<PipelineEvent>::makeStream();
    std::shared_ptr<MountInteractionGate> gate_ = std::make_shared<MountInteractionGate>();

  public:
    explicit ScriptedJob(std::vector<PipelineEvent> events, bool cancelledAtTheEnd = false) {
        for (PipelineEvent& event : events) ends_.second.yield(std::move(event));
        if (!cancelledAtTheEnd) ends_.second.finish();
    }

    PackagingPipeline::Job job{
        .events = ends_.first,
        .worker = Task([out = ends_.second, gate = gate_](std::stop_token stop) {
            try {
                gate->wait(stop);
                out.yield(PipelineEvents::Finished{"/out/Tool.pkg"});
            } catch (const std::exception&) {
                out.yield(PipelineEvents::Cancelled{});
            }
            out.finish();
        }),
        .mountInteractionGate = gate_,
        .untimestampedSigningGate = std::make_shared<UntimestampedSigningGate>(),
    };
};

TEST_F(CLITest, answersTheMountPromptFromTheTerminal) {
    const struct {
        bool interactive, tty;
        std::optional<std::string> answer;
        std::int32_t status;
        std::string errors;
    } cases[] = {
        {true, true, "", 0,
         "Complete the macOS mount dialog, wait for the volume, then press Return (Ctrl-C to cancel): "},
        {true, true, std::nullopt, 1,
         "Complete the macOS mount dialog, wait for the volume, then press Return (Ctrl-C to cancel): "
         "corvane: stdin closed while waiting for DMG mount confirmation\n"},
        {true, false, "", 1, "corvane: DMG mount requires system interaction; rerun with --interactive in a TTY\n"},
        {false, true, "", 1, "corvane: DMG mount requires system interaction; rerun with --interactive in a TTY\n"},
    };
    fakes.tool("open", "exit 1");
    for (const auto& expected : cases) {
        errors.clear();
        isTTY = expected.tty;
        answer = expected.answer;
        ScriptedJob scripted({PipelineEvents::MountInteractionRequired{}}, true);
        const CLIRunOptions options{.inputURL = "/in/Tool.dmg", .interactive = expected.interactive};
        EXPECT_EQ(application.follow(scripted.job, options), expected.status);
        EXPECT_EQ(errors, expected.errors);
    }
    EXPECT_EQ(fakes.calls(), (std::vector<std::string>{"open|/in/Tool.dmg", "open|/in/Tool.dmg"}));
}

TEST_F(CLITest, endsWithTheFirstTerminalEventOrSaysThatThereWasNone) {
    const CLIRunOptions options{.json = true};
    EXPECT_EQ(application.follow(ScriptedJob({}).job, options), 1);
    EXPECT_EQ(output,
              "{\"event\":\"failed\",\"exitCode\":1,\"message\":\"pipeline ended without a terminal event\"}\n");
    output.clear();
    EXPECT_EQ(
        application.follow(ScriptedJob({PipelineEvents::Cancelled{}, PipelineEvents::Failed{"later"}}).job, options),
        130);
    EXPECT_EQ(output, "{\"event\":\"cancelled\",\"exitCode\":130}\n");
    EXPECT_EQ(application.follow(ScriptedJob({PipelineEvents::Cancelled{}}).job, CLIRunOptions()), 130);
    EXPECT_EQ(errors, "corvane: cancelled\n");
}

TEST_F(CLITest, turnsInterruptsIntoOneCancellation) {
    fakes.tool("spctl", "kill -INT " + std::to_string(::getpid()) + "; kill -INT " + std::to_string(::getpid()) +
                            "; exec sleep 100");
    EXPECT_EQ(run({"sign", path("in/Tool.pkg"), "--sign", identity}), 130);
    EXPECT_TRUE(errors.ends_with("\ncorvane: cancelled\n")) << errors;
    struct sigaction action {};
    ::sigaction(SIGINT, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_DFL);
}

TEST_F(CLITest, encodesArgumentsThatAreNoText) {
    EXPECT_EQ(run({"\xFF", "--json"}), 64);
    EXPECT_EQ(output, "{\"event\":\"failed\",\"exitCode\":64,\"message\":\"Unknown command: \uFFFD\"}\n");
}

TEST_F(CLITest, worksInAFolderThatIsGone) {
    const FileURL before = std::filesystem::current_path();
    FileManager::createDirectory(path("gone"));
    std::filesystem::current_path(path("gone"));
    FileManager::removeItem(path("gone"));
    EXPECT_EQ(run({"--version"}), 0);
    EXPECT_EQ(run({"sign", path("in/Tool.pkg"), "--sign", identity}), 0);
    std::filesystem::current_path(before);
}

TEST(CLIStreams, keepsTextsOfThreadsApart) {
    std::string text;
    CLIStreams streams(
        [&](std::string_view part) {
            for (const char c : part) text += c;
        },
        [](std::string_view) {});
    {
        std::vector<std::jthread> threads;
        for (const char* line : {"aaaa\n", "bbbb\n", "cccc\n"}) {
            threads.emplace_back([&streams, line] {
                for (int i = 0; i < 200; ++i) streams.standardOutput(line);
            });
        }
    }
    ASSERT_EQ(text.size(), 3000U);
    for (std::size_t at = 0; at < text.size(); at += 5) EXPECT_EQ(text.substr(at, 4), std::string(4, text[at]));
}

TEST(CLIStreams, waitsForAReaderThatIsSlow) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0);
    const UniqueDescriptor reader(ends[0]);
    UniqueDescriptor writer(ends[1]);
    const std::string text(std::size_t{1} << 20, 'x');
    std::size_t received = 0;
    std::jthread reading([&] {
        std::array<char, 4096> buffer{};
        for (ssize_t count = 1; count != 0; count = ::read(reader.get(), buffer.data(), buffer.size())) {
            if (count > 0) received += static_cast<std::size_t>(count);
        }
    });
    EXPECT_TRUE(writeAll(writer.get(), text));
    writer.reset();
    reading.join();
    EXPECT_EQ(received, text.size() + 1);
}

TEST(InterruptController, canBeStartedAgainAndTellsNoOldInterrupts) {
    for (int round = 0; round < 20; ++round) {
        std::atomic<int> told = 0;
        InterruptController interrupts([&](int) {
            ++told;
            told.notify_all();
        });
        interrupts.start();
        ::raise(SIGINT);
        told.wait(0);
        ::raise(SIGINT);
        interrupts.stop();
        EXPECT_LE(told, 2);
    }
}

} // namespace
} // namespace corvane
