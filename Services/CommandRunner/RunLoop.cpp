#include "Services/CommandRunner/RunLoop.hpp"

#include "Support/FileError.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <limits>

namespace corvane {
namespace {

/// What `poll` takes: rounded up, so that a wait does not end just before its deadline; negative waits for ever.
int pollTimeout(const std::optional<std::chrono::steady_clock::time_point>& deadline) {
    if (!deadline) return -1;
    const auto rest = std::chrono::ceil<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(rest.count(), 0, std::numeric_limits<int>::max()));
}

} // namespace

RunLoop::RunLoop(const ChildProcess& child, int wakeDescriptor, const CommandRunner::Timing& timing)
    : child_(child),
      timing_(timing),
      sources_{{{child.standardOutput(), POLLIN, 0},
                {child.standardError(), POLLIN, 0},
                {child.end(), POLLIN, 0},
                {wakeDescriptor, POLLIN, 0}}} {}

void RunLoop::run() {
    while (!isOver()) {
        wait();
        if (isReady(output)) readChunk(output);
        if (isReady(errors)) readChunk(errors);
        if (isReady(childEnd)) noteEnd();
        if (isReady(wake)) terminate();
        if (!isClosed(childEnd) && isDeadlinePassed()) kill();
    }
}

bool RunLoop::isOver() const {
    const bool drained = isClosed(output) && isClosed(errors);
    return isClosed(childEnd) && (drained || isDeadlinePassed());
}

void RunLoop::wait() {
    while (::poll(sources_.data(), sources_.size(), pollTimeout(deadline_)) < 0) {
        if (errno != EINTR) throw std::system_error(lastSystemError());
    }
}

void RunLoop::readChunk(Source pipe) {
    std::array<char, 65536> chunk; // as much as a pipe usually holds
    const ssize_t count = ::read(sources_[pipe].fd, chunk.data(), chunk.size());
    if (count > 0) {
        texts_[pipe].append(chunk.data(), static_cast<std::size_t>(count));
    } else if (count == 0 || errno != EINTR) {
        close(pipe);
    }
}

void RunLoop::noteEnd() {
    close(childEnd);
    deadline_ = Clock::now() + timing_.openPipes;
}

void RunLoop::terminate() {
    close(wake);
    child_.signalGroup(SIGTERM);
    if (!isClosed(childEnd)) deadline_ = Clock::now() + timing_.untilKill;
}

void RunLoop::kill() {
    child_.signalGroup(SIGKILL);
    deadline_.reset();
}

} // namespace corvane
