#include "Platform/Tools/PassphrasePrompt.hpp"

#include "Support/FileError.hpp"
#include "Support/UniqueDescriptor.hpp"
#include "Support/WriteAll.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <termios.h>

namespace corvane::Tools {
namespace {

/// A terminal that does not show what is typed, until the owner goes.
class SilentTerminal {
  public:
    explicit SilentTerminal(int descriptor) : descriptor_(descriptor) {
        if (::tcgetattr(descriptor, &previous_) != 0) {
            throw FileError("Cannot examine", "/dev/tty", lastSystemError());
        }
        termios silent = previous_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        silent.c_lflag |= ICANON | ISIG;
        ::tcsetattr(descriptor, TCSAFLUSH, &silent);
    }
    SilentTerminal(const SilentTerminal&) = delete;
    SilentTerminal& operator=(const SilentTerminal&) = delete;
    ~SilentTerminal() { ::tcsetattr(descriptor_, TCSAFLUSH, &previous_); }

  private:
    int descriptor_;
    termios previous_{};
};

/// Holds back the signals that would end or stop the process; the destructor lets them act.
class DeferredSignals {
  public:
    DeferredSignals() {
        sigemptyset(&signals_);
        for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP}) sigaddset(&signals_, number);
        ::pthread_sigmask(SIG_BLOCK, &signals_, &previous_);
    }
    DeferredSignals(const DeferredSignals&) = delete;
    DeferredSignals& operator=(const DeferredSignals&) = delete;
    ~DeferredSignals() { ::pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }

    const sigset_t& signals() const { return signals_; }

  private:
    sigset_t signals_{};
    sigset_t previous_{};
};

/// Waits for input. False when a signal has come instead, which stays pending.
bool waitForInput(int terminal, const sigset_t& signals) {
    const UniqueDescriptor arrival(::signalfd(-1, &signals, SFD_CLOEXEC));
    pollfd watched[] = {{terminal, POLLIN, 0}, {arrival.get(), POLLIN, 0}};
    while (::poll(watched, 2, -1) < 0 && errno == EINTR) {
    }
    return watched[1].revents == 0;
}

/// One line without its line feed; what has been read so far when the input ends.
std::string readLine(int terminal, const sigset_t& signals) {
    std::string line;
    char character = 0;
    while (waitForInput(terminal, signals) && ::read(terminal, &character, 1) == 1) {
        if (character == '\n') return line;
        line += character;
    }
    throw std::runtime_error("no passphrase was entered");
}

} // namespace

std::string askForPassphrase(const std::string& prompt) {
    const UniqueDescriptor terminal(::open("/dev/tty", O_RDWR | O_CLOEXEC));
    if (!terminal) throw std::runtime_error("a passphrase is needed and there is no terminal to ask on");
    const DeferredSignals deferred;
    const SilentTerminal silent(terminal.get());
    writeAll(terminal.get(), prompt);
    std::string line = readLine(terminal.get(), deferred.signals());
    writeAll(terminal.get(), "\n");
    return line;
}

} // namespace corvane::Tools
