#pragma once

#include "Services/LaunchError.hpp"
#include "Support/FileURL.hpp"

#include <chrono>
#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace corvane {

/// What a child process left behind.
struct CommandResult {
    /// The exit code, or the number of the signal that ended the child.
    std::int32_t exitCode = 0;
    /// Everything written, as UTF-8 with U+FFFD for what is none.
    std::string standardOutput;
    std::string standardError;

    bool succeeded() const { return exitCode == 0; }
};

/// Runs the system's tools as child processes. Any number of runs may go on side by side from any threads; they share
/// nothing.
namespace CommandRunner {

/// Delays of a run; tests shorten them.
struct Timing {
    /// How long the pipes may stay open after the child has ended (a descendant may hold them for ever).
    std::chrono::milliseconds openPipes{3000};
    /// How long a child may go on after it was asked to terminate, until it is killed.
    std::chrono::milliseconds untilKill{5000};
};

/// Runs one child to its end and returns its status and output; waits on the calling thread.
///
/// The child gets the arguments unchanged (no shell), the null device as standard input, the environment of this
/// process, default signal dispositions, an empty signal mask, a process group of its own, and no other descriptor.
/// Both pipes are drained at once. The result comes when the child has ended and both pipes have reached their end, or
/// `openPipes` after the child's end with what was read until then.
///
/// A stop request sends SIGTERM to the child's group, and SIGKILL `untilKill` later if the child still runs; the run
/// then fails with `CancellationError`, whatever the child's result. Descendants may end their work while they keep a
/// pipe open, at most until the same deadlines; what is left of the group when the run fails is killed. Without a stop
/// request descendants are left alone.
///
/// @param executable absolute path of a system tool; see `SystemTool.hpp` for what is launched
/// @param currentDirectory the child's working folder; absent: this process's
/// @throws CancellationError, LaunchError. A non-zero status is not a failure.
CommandResult run(const std::string& executable, const std::vector<std::string>& arguments,
                  const std::stop_token& stop = {}, const std::optional<FileURL>& currentDirectory = std::nullopt,
                  const Timing& timing = {});

/// The same for a caller to which every non-zero status is an error.
/// @param toolName how the error calls the tool; absent: the executable's file name
/// @throws PipelineError (`toolFailed`) and what `run` throws
CommandResult runChecked(const std::string& executable, const std::vector<std::string>& arguments,
                         const std::stop_token& stop = {}, const std::optional<std::string>& toolName = std::nullopt);

} // namespace CommandRunner
} // namespace corvane
