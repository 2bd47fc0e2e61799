#include "Services/CommandRunner.hpp"

#include "Models/PipelineModels.hpp"
#include "Services/CommandRunner/ChildProcess.hpp"
#include "Services/CommandRunner/RunLoop.hpp"
#include "Services/SystemTool.hpp"
#include "Support/CancellationError.hpp"
#include "Support/FileError.hpp"
#include "Support/Text.hpp"
#include "Support/WriteAll.hpp"

#include <system_error>

namespace corvane::CommandRunner {
namespace {

ChildCommand makeCommand(const std::string& executable, const std::vector<std::string>& arguments,
                         const std::optional<FileURL>& currentDirectory) {
    ChildCommand command{SystemTool::executable(executable), {executable}, currentDirectory};
    command.arguments.insert(command.arguments.end(), arguments.begin(), arguments.end());
    return command;
}

CommandResult follow(const ChildCommand& command, const std::stop_token& stop, const Timing& timing) {
    const ChildSystem::Pipe wake = ChildSystem::makePipe();
    const std::stop_callback wakeOnStop(stop, [&wake] { writeAll(wake.writingEnd.get(), "."); });
    ChildProcess child(command);
    RunLoop loop(child, wake.readingEnd.get(), timing);
    loop.run();
    CommandResult result;
    result.standardOutput = Text::decodedUTF8(loop.standardOutput());
    result.standardError = Text::decodedUTF8(loop.standardError());
    // The last look at the token. A cancelled child is left to its destructor, which kills what remains of the group.
    checkCancellation(stop);
    result.exitCode = child.reap();
    return result;
}

std::string launchFailure(const ChildCommand& command, const std::error_code& reason) {
    const std::string place = command.currentDirectory ? " in " + command.currentDirectory->string() : "";
    return "Cannot run " + command.executable.string() + place + ": " + reason.message();
}

} // namespace

CommandResult run(const std::string& executable, const std::vector<std::string>& arguments, const std::stop_token& stop,
                  const std::optional<FileURL>& currentDirectory, const Timing& timing) {
    checkCancellation(stop);
    ChildCommand command{executable, {}, currentDirectory};
    try {
        command = makeCommand(executable, arguments, currentDirectory);
        return follow(command, stop, timing);
    } catch (const FileError& error) { // this program's own place cannot be told
        throw LaunchError(std::string("Cannot run ") + executable + ": " + error.what());
    } catch (const std::system_error& error) {
        throw LaunchError(launchFailure(command, error.code()));
    }
}

CommandResult runChecked(const std::string& executable, const std::vector<std::string>& arguments,
                         const std::stop_token& stop, const std::optional<std::string>& toolName) {
    CommandResult result = run(executable, arguments, stop);
    if (result.succeeded()) return result;
    throw PipelineError::toolFailed(toolName.value_or(lastPathComponent(executable)), result.exitCode,
                                    std::move(result.standardError));
}

} // namespace corvane::CommandRunner
