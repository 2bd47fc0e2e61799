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

/// What the thread reads when it is to end. Every other byte is a signal's number.
constexpr char stopped = 0;

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

void noteSignal(int number) {
    const int saved = errno;
    const char byte = static_cast<char>(number);
    // A full pipe holds signals enough.
    [[maybe_unused]] const ssize_t written = ::write(handlerEnd, &byte, 1);
    errno = saved;
}

bool isIgnored(int number) {
    struct sigaction action {};
    return ::sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

void setAction(int number, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    ::sigaction(number, &action, nullptr);
}

/// The next byte; signals left over from an earlier controller come before any of this one's.
char nextByte() {
    char byte = stopped;
    while (::read(pipeEnds()[0], &byte, 1) < 0 && errno == EINTR) {
    }
    return byte;
}

} // namespace

void InterruptController::start() {
    handlerEnd = pipeEnds()[1];
    thread_ = std::jthread([this] {
        for (char byte = nextByte(); byte != stopped; byte = nextByte()) handler_(byte);
    });
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        if (isIgnored(number)) continue;
        routed_.push_back(number);
        setAction(number, &noteSignal);
    }
}

void InterruptController::stop() {
    if (!thread_.joinable()) return;
    for (const int number : routed_) setAction(number, SIG_DFL);
    routed_.clear();
    while (::write(pipeEnds()[1], &stopped, 1) < 0 && (errno == EINTR || errno == EAGAIN)) {
    }
    thread_.join();
}

void InterruptController::endProcess(int signal) {
    setAction(signal, SIG_DFL);
    ::raise(signal);
}

} // namespace corvane
