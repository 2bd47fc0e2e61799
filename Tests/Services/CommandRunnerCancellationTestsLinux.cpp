#include "Services/CommandRunner.hpp"
#include "Support/CancellationError.hpp"
#include "Support/FileManager.hpp"
#include "Tests/Services/DescendantWatch.hpp"
#include "Tests/Services/ProcessState.hpp"
#include "Tests/TestSupport.hpp"

#include <csignal>
#include <random>
#include <thread>

namespace corvane {
namespace {

using namespace std::chrono_literals;
using TestSupport::becomesTrue;
using TestSupport::DescendantWatch;
using TestSupport::openDescriptors;
using TestSupport::Sandbox;

/// Runs a script that makes the file "ready" in its folder, and requests the stop when it is there. Returns how long
/// the run went on after that.
std::chrono::nanoseconds cancelWhenReady(const Sandbox& sandbox, const std::string& script,
                                         const CommandRunner::Timing& timing) {
    std::stop_source source;
    std::chrono::steady_clock::time_point requested;
    std::jthread stopper([&] {
        EXPECT_TRUE(becomesTrue([&] { return FileManager::fileExists(sandbox / "ready"); }));
        requested = std::chrono::steady_clock::now();
        source.request_stop();
    });
    EXPECT_THROW(CommandRunner::run("/bin/sh", {"-c", script}, source.get_token(), sandbox.url(), timing),
                 CancellationError);
    stopper.join();
    return std::chrono::steady_clock::now() - requested;
}

TEST(CommandRunnerCancellation, startsNothingAfterAStop) {
    const Sandbox sandbox;
    std::stop_source source;
    source.request_stop();
    EXPECT_THROW(CommandRunner::run("/bin/sh", {"-c", ": > started"}, source.get_token(), sandbox.url()),
                 CancellationError);
    EXPECT_FALSE(FileManager::fileExists(sandbox / "started"));
}

TEST(CommandRunnerCancellation, letsTheChildEndItsWork) {
    const Sandbox sandbox;
    const DescendantWatch watch;
    cancelWhenReady(sandbox, "trap ': > cleaned; exit 0' TERM; : > ready; sleep 1000 & wait", {});
    EXPECT_TRUE(FileManager::fileExists(sandbox / "cleaned"));
    EXPECT_TRUE(watch.becomesAlone());
}

TEST(CommandRunnerCancellation, killsWhatGoesOn) {
    const CommandRunner::Timing killsSoon{.openPipes = 1h, .untilKill = 50ms};
    const CommandRunner::Timing givesUpSoon{.openPipes = 50ms, .untilKill = 1h};
    const struct {
        std::string name, script;
        CommandRunner::Timing timing;
        std::chrono::nanoseconds atLeast;
    } cases[] = {
        {"a child that ignores the request", "trap '' TERM; : > ready; while :; do sleep 1000; done", killsSoon, 50ms},
        {"its descendants", "trap '' TERM; { sleep 1000; } & : > ready; wait", killsSoon, 50ms},
        {"a descendant that keeps a pipe", "(trap '' TERM; : > ready; sleep 1000) & wait", givesUpSoon, 50ms},
        {"the same after the child's end", "(trap '' TERM; : > ready; sleep 1000) & exit 0", {.openPipes = 1s}, 0ms},
        {"a descendant without a pipe",
         "(trap '' TERM; : > ready; sleep 1000) > /dev/null 2>&1 & wait",
         {.openPipes = 1h, .untilKill = 1h},
         0ms},
        {"a stopped child", ": > ready; kill -STOP $$", killsSoon, 0ms},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.name);
        const Sandbox sandbox;
        const DescendantWatch watch;
        const auto duration = cancelWhenReady(sandbox, expected.script, expected.timing);
        EXPECT_GE(duration, expected.atLeast);
        EXPECT_LT(duration, 20s);
        EXPECT_TRUE(watch.becomesAlone());
    }
}

TEST(CommandRunnerCancellation, givesOneResultAndLeavesNothingAtAnyMoment) {
    const struct {
        std::string script;
        std::int32_t exitCode;
    } kinds[] = {
        {"exit 3", 3},
        {"echo out; exit 4", 4},
        {"sleep 0.002; exit 5", 5},
        {"sleep 0.002 & exit 6", 6},
        {"(trap '' TERM; exec sleep 1000) & echo $!; exit 7", 7},
        {"trap '' TERM; sleep 0.003; exit 8", 8},
    };
    const DescendantWatch watch;
    const auto descriptors = openDescriptors();
    std::minstd_rand random(1);
    int results = 0, cancellations = 0;
    for (int round = 0; round < 600; ++round) {
        const auto& kind = kinds[static_cast<std::size_t>(round) % std::size(kinds)];
        std::stop_source source;
        const std::chrono::microseconds moment(random() % 6000);
        std::jthread stopper([&] {
            std::this_thread::sleep_for(moment);
            source.request_stop();
        });
        try {
            const CommandResult result = CommandRunner::run("/bin/sh", {"-c", kind.script}, source.get_token(),
                                                            std::nullopt, {.openPipes = 10ms, .untilKill = 2ms});
            EXPECT_EQ(result.exitCode, kind.exitCode);
            ++results;
            // Under load the pipes are given up before the stop comes. Then the descendant may go on.
            if (kind.exitCode == 7) ::kill(std::stoi(result.standardOutput), SIGKILL);
        } catch (const CancellationError&) {
            ++cancellations;
        }
        stopper.join();
        ASSERT_TRUE(watch.becomesAlone()) << kind.script;
        ASSERT_EQ(openDescriptors(), descriptors);
    }
    EXPECT_GT(results, 0);
    EXPECT_GT(cancellations, 0);
}

} // namespace
} // namespace corvane
