#include "Models/PipelineModels.hpp"
#include "Services/CommandRunner.hpp"
#include "Services/SystemTool.hpp"
#include "Support/FileManager.hpp"
#include "Support/UniqueDescriptor.hpp"
#include "Tests/Services/ProcessState.hpp"
#include "Tests/TestSupport.hpp"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <thread>

namespace corvane {
namespace {

using TestSupport::openDescriptors;
using TestSupport::Sandbox;

CommandResult shell(const std::string& script) { return CommandRunner::run("/bin/sh", {"-c", script}); }

TEST(CommandRunner, returnsStatusAndBothTexts) {
    const struct {
        std::string script;
        std::int32_t exitCode;
        std::string output, errors;
    } cases[] = {
        {":", 0, "", ""},
        {"echo out; echo err >&2; exit 1", 1, "out\n", "err\n"},
        {"exit 127", 127, "", ""},
        {"echo out; kill -TERM $$", SIGTERM, "out\n", ""},
        {"kill -KILL $$", SIGKILL, "", ""},
        {"exec >&- 2>&-; exit 2", 2, "", ""},
        {"printf ' \\n '", 0, " \n ", ""},
        {R"(printf '\377x\303'; printf '\342\202' >&2)", 0, "\uFFFDx\uFFFD", "\uFFFD"},
        {R"(printf '\303'; printf '\251')", 0, "é", ""},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.script);
        const CommandResult result = shell(expected.script);
        EXPECT_EQ(result.exitCode, expected.exitCode);
        EXPECT_EQ(result.standardOutput, expected.output);
        EXPECT_EQ(result.standardError, expected.errors);
        EXPECT_EQ(result.succeeded(), expected.exitCode == 0);
    }
}

TEST(CommandRunner, decodesCharactersThatChunksSplit) {
    // Three bytes a line after one byte: whatever the size of a chunk, some of their borders fall into a character.
    const CommandResult result = shell("printf a; yes é | head -n 200000");
    ASSERT_EQ(result.standardOutput.size(), 1 + 200000 * 3U);
    EXPECT_EQ(result.standardOutput.find("\uFFFD"), std::string::npos);
}

TEST(CommandRunner, drainsBothPipesAtOnce) {
    constexpr std::size_t size = 100'000'000;
    const CommandResult result = shell("yes abcdefg | head -c 100000000 & yes tuvwxyz | head -c 100000000 >&2; wait");
    const std::pair<const std::string&, std::string> cases[] = {{result.standardOutput, "abcdefg\n"},
                                                                {result.standardError, "tuvwxyz\n"}};
    for (const auto& [text, line] : cases) {
        ASSERT_EQ(text.size(), size);
        ASSERT_TRUE(text.starts_with(line));
        // Equal to itself one line further on: nothing is missing or out of order.
        EXPECT_EQ(std::string_view(text).substr(line.size()), std::string_view(text).substr(0, size - line.size()));
    }
}

TEST(CommandRunner, runsManyChildrenSideBySide) {
    std::vector<CommandResult> results(64);
    {
        std::vector<std::jthread> threads;
        for (std::size_t index = 0; index < results.size(); ++index) {
            threads.emplace_back([&result = results[index], number = std::to_string(index)] {
                result = CommandRunner::run(
                    "/bin/sh", {"-c", "yes out$0 | head -n 20000; yes err$0 | head -n 20000 >&2; exit $0", number});
            });
        }
    }
    for (std::size_t index = 0; index < results.size(); ++index) {
        std::string output, errors;
        for (int line = 0; line < 20000; ++line) {
            output += "out" + std::to_string(index) + "\n";
            errors += "err" + std::to_string(index) + "\n";
        }
        EXPECT_EQ(results[index].exitCode, static_cast<std::int32_t>(index));
        EXPECT_TRUE(results[index].standardOutput == output);
        EXPECT_TRUE(results[index].standardError == errors);
    }
}

TEST(CommandRunner, handsArgumentsFolderAndEnvironmentOverUnchanged) {
    const std::vector<std::string> odd = {"", " ", "a b", "*", "$HOME", "`id`", "\"", "'", "\\", "é\n", "-x"};
    std::string expected;
    for (const std::string& argument : odd) expected += argument + "|";
    std::vector<std::string> arguments = {"-c", R"(for a; do printf '%s|' "$a"; done)", "sh"};
    arguments.insert(arguments.end(), odd.begin(), odd.end());
    EXPECT_EQ(CommandRunner::run("/bin/sh", arguments).standardOutput, expected);

    const Sandbox sandbox;
    const FileURL folder = std::filesystem::canonical(sandbox.url()) / "with spaces, ü";
    FileManager::createDirectory(folder);
    EXPECT_EQ(CommandRunner::run("/bin/pwd", {"-P"}, {}, folder).standardOutput, folder.string() + "\n");
    EXPECT_EQ(shell("pwd -P").standardOutput, std::filesystem::canonical(".").string() + "\n");

    ::setenv("CORVANE_TEST_SETTING", "handed over", 1);
    EXPECT_EQ(shell("echo $CORVANE_TEST_SETTING").standardOutput, "handed over\n");
    ::unsetenv("CORVANE_TEST_SETTING");
}

std::string launchFailure(const std::string& executable, const std::vector<std::string>& arguments = {},
                          const std::optional<FileURL>& folder = std::nullopt) {
    try {
        CommandRunner::run(executable, arguments, {}, folder);
    } catch (const LaunchError& error) {
        return error.what();
    }
    return "launched";
}

TEST(CommandRunner, namesWhatCannotBeLaunchedAndWhy) {
    const Sandbox sandbox;
    const std::string plain = sandbox.write("plain", "text").string();
    const std::string noProgram = sandbox.write("no program", "text").string();
    std::filesystem::permissions(noProgram, std::filesystem::perms::owner_all);
    const std::string missing = (sandbox / "missing").string();
    const auto descriptors = openDescriptors();
    EXPECT_EQ(launchFailure(missing), "Cannot run " + missing + ": No such file or directory");
    EXPECT_EQ(launchFailure(plain), "Cannot run " + plain + ": Permission denied");
    EXPECT_EQ(launchFailure(sandbox.url().string()), "Cannot run " + sandbox.url().string() + ": Permission denied");
    EXPECT_EQ(launchFailure(noProgram), "Cannot run " + noProgram + ": Exec format error");
    EXPECT_EQ(launchFailure("/bin/sh", {}, missing),
              "Cannot run /bin/sh in " + missing + ": No such file or directory");
    EXPECT_EQ(launchFailure("/bin/sh", {}, plain), "Cannot run /bin/sh in " + plain + ": Not a directory");
    EXPECT_EQ(launchFailure("/bin/sh", {std::string("a\0b", 3)}), "Cannot run /bin/sh: Invalid argument");
    EXPECT_EQ(launchFailure("/bin/sh", {std::string(std::size_t{1} << 20, 'a')}),
              "Cannot run /bin/sh: Argument list too long");
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_TRUE(TestSupport::isChildless());
}

TEST(CommandRunner, leavesNothingBehindWhereverDescriptorsRunOut) {
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const auto descriptors = openDescriptors();
    const UniqueDescriptor next(::open("/dev/null", O_RDONLY));
    std::vector<std::string> outcomes;
    do {
        rlimit limit = before;
        limit.rlim_cur = static_cast<rlim_t>(next.get()) + 1 + outcomes.size();
        ::setrlimit(RLIMIT_NOFILE, &limit);
        outcomes.push_back(launchFailure("/bin/sh", {"-c", ":"}));
        ::setrlimit(RLIMIT_NOFILE, &before);
        ASSERT_EQ(openDescriptors(), descriptors + 1);
        ASSERT_TRUE(TestSupport::isChildless());
    } while (outcomes.back() == "Cannot run /bin/sh: Too many open files");
    EXPECT_EQ(outcomes.back(), "launched");
    EXPECT_GT(outcomes.size(), 8U) << "a run needs eight descriptors at its most";
}

TEST(CommandRunner, turnsANonZeroStatusIntoAnErrorForCheckedRuns) {
    const Sandbox sandbox;
    sandbox.writeScript("hdiutil", "echo out; echo err >&2; exit $1");
    const SystemTool::Override tools(sandbox.url());
    EXPECT_EQ(CommandRunner::runChecked("/usr/bin/hdiutil", {"0"}).standardOutput, "out\n");
    const std::pair<std::optional<std::string>, std::string> cases[] = {{std::nullopt, "hdiutil"},
                                                                        {"attaching", "attaching"}};
    for (const auto& [name, expected] : cases) {
        try {
            CommandRunner::runChecked("/usr/bin/hdiutil", {"7"}, {}, name);
            ADD_FAILURE() << "no error";
        } catch (const PipelineError& error) {
            const auto& failure = std::get<PipelineError::ToolFailed>(error.kind());
            EXPECT_EQ(failure.tool, expected);
            EXPECT_EQ(failure.exitCode, 7);
            EXPECT_EQ(failure.standardError, "err\n");
        }
    }
    EXPECT_THROW(CommandRunner::runChecked("/nowhere/tool", {}), LaunchError);
}

} // namespace
} // namespace corvane
