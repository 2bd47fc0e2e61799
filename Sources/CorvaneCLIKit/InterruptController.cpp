#include "Sources/CorvaneCLIKit/InterruptController.hpp"

#include "Support/FileError.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>

namespace corvane {
namespace {

constexpr char interrupted = 'i';
constexpr char stopped = 's';

/// The pipe from the signal handler to the controller's thread. It lives as long as the process: a handler may still be
/// running when a controller stops, and must never write to a descriptor that has become something else.
struct Pipe {
    Pipe() {
        if (::pipe(ends.data()) != 0) throw FileError("Cannot create", "a pipe", lastSystemError());
        for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
        ::fcntl(ends[1], F_SETFL, O_NONBLOCK);
    }
    std::array<int, 2> ends{-1, -1};
};

const std::array<int, 2>& pipeEnds() {
    static const Pipe pipe;
    return pipe.ends;
}

/// Set before the handler is installed, and always to the same value.
std::atomic<int> handlerEnd = -1;
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler may not wait for a lock");

void noteInterrupt(int) {
    const int saved = errno;
    // A full pipe holds interrupts enough.
    [[maybe_unused]] const ssize_t written = ::write(handlerEnd, &interrupted, 1);
    errno = saved;
}

void setInterruptAction(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, nullptr);
}

/// The next byte; interrupts left over from an earlier controller come before any of this one's.
char nextByte() {
    char byte = stopped;
    while (::read(pipeEnds()[0], &byte, 1) < 0 && errno == EINTR) {
    }
    return byte;
}

} // namespace

bool InterruptController::areInterruptsIgnored() {
    struct sigaction action {};
    return ::sigaction(SIGINT, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

void InterruptController::start() {
    handlerEnd = pipeEnds()[1];
    thread_ = std::jthread([this] {
        while (nextByte() == interrupted) handler_();
    });
    setInterruptAction(&noteInterrupt);
}

void InterruptController::stop() {
    if (!thread_.joinable()) return;
    setInterruptAction(SIG_DFL);
    while (::write(pipeEnds()[1], &stopped, 1) < 0 && (errno == EINTR || errno == EAGAIN)) {
    }
    thread_.join();
}

} // namespace corvane
