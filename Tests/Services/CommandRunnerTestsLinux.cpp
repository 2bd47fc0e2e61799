#include "Services/CommandRunner.hpp"
#include "Services/CommandRunner/ChildSystem.hpp"
#include "Services/CommandRunner/Spawn.hpp"
#include "Services/SystemTool.hpp"
#include "Tests/Services/DescendantWatch.hpp"
#include "Tests/TestSupport.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

namespace corvane {
namespace {

using namespace std::chrono_literals;
using TestSupport::DescendantWatch;
using TestSupport::Sandbox;

TEST(CommandRunner, callsTheToolByThePathThatWasAskedFor) {
    const Sandbox sandbox;
    std::filesystem::create_symlink(std::filesystem::canonical("/bin/cat"), sandbox / "tool");
    const SystemTool::Override tools(sandbox.url());
    EXPECT_EQ(CommandRunner::run("/nowhere/tool", {"/proc/self/cmdline"}).standardOutput,
              std::string("/nowhere/tool\0/proc/self/cmdline\0", 33));
}

TEST(CommandRunner, givesTheChildTheNullDeviceAndNoOtherDescriptor) {
    const UniqueDescriptor inherited(::open("/dev/null", O_RDONLY));
    const UniqueDescriptor high(::fcntl(inherited.get(), F_DUPFD, 200));
    // The fourth one is the listing's own.
    EXPECT_EQ(CommandRunner::run("/bin/ls", {"/proc/self/fd"}).standardOutput, "0\n1\n2\n3\n");
    EXPECT_EQ(CommandRunner::run("/bin/readlink", {"/proc/self/fd/0"}).standardOutput, "/dev/null\n");
}

TEST(CommandRunner, givesTheChildFreshSignalsAndAGroupOfItsOwn) {
    sigset_t all, before;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_BLOCK, &all, &before);
    const auto oldPipe = ::signal(SIGPIPE, SIG_IGN);
    const auto oldInterrupt = ::signal(SIGINT, SIG_IGN);
    const std::string status = CommandRunner::run("/bin/cat", {"/proc/self/status"}).standardOutput;
    ::signal(SIGINT, oldInterrupt);
    ::signal(SIGPIPE, oldPipe);
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    constexpr std::uint64_t keptByTheCLibrary = 0x180000000; // signals 32 and 33
    for (const std::string name : {"SigBlk", "SigIgn", "SigCgt"}) {
        const auto at = status.find(name + ":\t");
        ASSERT_NE(at, std::string::npos);
        const std::uint64_t signals = std::stoull(status.substr(at + name.size() + 2, 16), nullptr, 16);
        EXPECT_EQ(signals & ~keptByTheCLibrary, 0U) << name;
    }
    const std::string group =
        CommandRunner::run("/bin/sh", {"-c", "cut -d ' ' -f 5 /proc/$$/stat; echo $$"}).standardOutput;
    const auto line = group.find('\n');
    EXPECT_EQ(group.substr(0, line + 1), group.substr(line + 1));
}

/// For a process of its own: it loses its standard streams.
bool spawnsWithPipesInPlaceOfTheStandardStreams() noexcept {
    ::alarm(20); // a wrong pipe would be read for ever
    const ChildSystem::Pipe output = ChildSystem::makePipe(), errors = ChildSystem::makePipe();
    ::close(STDIN_FILENO);
    ::dup2(output.writingEnd.get(), STDERR_FILENO);
    ::dup2(errors.writingEnd.get(), STDOUT_FILENO);
    spawn({"/bin/sh", {"sh", "-c", "cat; printf out; printf err >&2"}, std::nullopt}, STDERR_FILENO, STDOUT_FILENO);
    ::wait(nullptr);
    char text[6] = {};
    return ::read(output.readingEnd.get(), text, 3) == 3 && ::read(errors.readingEnd.get(), text + 3, 3) == 3 &&
           std::string_view(text, 6) == "outerr";
}

// A pipe takes the lowest free descriptors, in the worst case the two that the child needs for the other stream.
TEST(CommandRunner, worksInAProcessWithoutStandardStreams) {
    std::fflush(nullptr); // a copy of what waits for output must not end in the pipes
    const pid_t process = ::fork();
    if (process == 0) ::_exit(spawnsWithPipesInPlaceOfTheStandardStreams() ? 0 : 1);
    int status = 0;
    ::waitpid(process, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST(CommandRunner, doesNotWaitForDescendantsForEver) {
    // The second one keeps writing, so the loop has something to read at all times.
    const DescendantWatch watch;
    const std::string descendants[] = {"sleep 1000", "while :; do echo x; done"};
    for (const std::string& descendant : descendants) {
        SCOPED_TRACE(descendant);
        const auto start = std::chrono::steady_clock::now();
        const CommandResult result =
            CommandRunner::run("/bin/sh", {"-c", "echo out; { " + descendant + "; } & echo $! >&2; exit 3"}, {},
                               std::nullopt, {.openPipes = 50ms});
        EXPECT_GE(std::chrono::steady_clock::now() - start, 50ms);
        EXPECT_EQ(result.exitCode, 3);
        EXPECT_TRUE(result.standardOutput.starts_with("out\n"));
        const pid_t pid = std::stoi(result.standardError);
        ::kill(pid, SIGTERM);
        int status = 0;
        ASSERT_EQ(::waitpid(pid, &status, 0), pid);
        EXPECT_NE(WTERMSIG(status), SIGKILL) << "nobody asked the run to stop";
    }
}

} // namespace
} // namespace corvane
