#include "Services/CommandRunner/ChildProcess.hpp"

#include "Support/FileError.hpp"

#include <sys/wait.h>

#include <csignal>
#include <utility>

namespace corvane {
namespace {

/// Returns whether the child was reaped; if not, the reason is in `errno`.
bool waitFor(pid_t child, int& status) {
    pid_t reaped = 0;
    do {
        reaped = ::waitpid(child, &status, 0);
    } while (reaped < 0 && errno == EINTR);
    return reaped == child;
}

} // namespace

ChildProcess::ChildProcess(const ChildCommand& command, ChildSystem::Pipe output, ChildSystem::Pipe errors)
    : pid_(spawn(command, output.writingEnd.get(), errors.writingEnd.get())),
      standardOutput_(std::move(output.readingEnd)),
      standardError_(std::move(errors.readingEnd)) {}

// The writing ends are closed when the delegate returns: an end of file must not wait for this process. From there on
// the destructor runs on failure too.
ChildProcess::ChildProcess(const ChildCommand& command)
    : ChildProcess(command, ChildSystem::makePipe(), ChildSystem::makePipe()) {
    end_ = ChildSystem::endOfChild(pid_);
}

ChildProcess::~ChildProcess() {
    if (pid_ == 0) return;
    signalGroup(SIGKILL);
    int status = 0;
    waitFor(pid_, status);
}

void ChildProcess::signalGroup(int signal) const {
    // A child that has left its group, with nobody in it, is reached by itself.
    if (::kill(-pid_, signal) != 0) ::kill(pid_, signal);
}

std::int32_t ChildProcess::reap() {
    int status = 0;
    if (!waitFor(std::exchange(pid_, 0), status)) throw std::system_error(lastSystemError());
    return WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);
}

} // namespace corvane
