#include "Platform/Tools/Terminal.hpp"

#include "Support/CancellationError.hpp"
#include "Support/FileError.hpp"
#include "Support/WriteAll.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <termios.h>

#include <cstdint>
#include <functional>
#include <stdexcept>

namespace corvane::Tools {
namespace {

constexpr std::size_t inputLimit = std::size_t{1} << 20;

/// Becomes readable when a stop is requested.
class StopEvent {
  public:
    explicit StopEvent(const std::stop_token& stop)
        : event_(::eventfd(0, EFD_CLOEXEC)), callback_(stop, [this] {
              const std::uint64_t one = 1;
              writeAll(event_.get(), {reinterpret_cast<const char*>(&one), sizeof one});
          }) {}
    int descriptor() const { return event_.get(); }

  private:
    UniqueDescriptor event_;
    std::stop_callback<std::function<void()>> callback_;
};

/// How a terminal takes a line, until the owner goes.
class LineSettings {
  public:
    LineSettings(int descriptor, Echo echo) : descriptor_(descriptor) {
        if (::tcgetattr(descriptor, &previous_) != 0) {
            throw FileError("Cannot examine", "/dev/tty", lastSystemError());
        }
        termios settings = previous_;
        settings.c_iflag |= ICRNL;
        settings.c_lflag |= ICANON | ISIG | ECHO;
        if (echo == Echo::hidden) settings.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        for (const int key : {VQUIT, VSUSP}) settings.c_cc[key] = _POSIX_VDISABLE;
        ::tcsetattr(descriptor, TCSAFLUSH, &settings);
    }
    LineSettings(const LineSettings&) = delete;
    LineSettings& operator=(const LineSettings&) = delete;
    ~LineSettings() { ::tcsetattr(descriptor_, TCSAFLUSH, &previous_); }

  private:
    int descriptor_;
    termios previous_{};
};

} // namespace

Input readInput(int descriptor, char delimiter, const std::stop_token& stop) {
    const StopEvent stopEvent(stop);
    Input input;
    while (input.text.size() <= inputLimit) {
        pollfd watched[] = {{descriptor, POLLIN, 0}, {stopEvent.descriptor(), POLLIN, 0}};
        if (::poll(watched, 2, -1) < 0 && errno == EINTR) continue;
        checkCancellation(stop);
        char character = 0;
        const ssize_t count = ::read(descriptor, &character, 1);
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (count <= 0) break;
        if (character == delimiter) {
            input.isComplete = true;
            break;
        }
        input.text += character;
    }
    return input;
}

std::optional<Terminal> Terminal::ofProcess() {
    UniqueDescriptor descriptor(::open("/dev/tty", O_RDWR | O_CLOEXEC));
    if (!descriptor) return std::nullopt;
    return Terminal(std::move(descriptor));
}

void Terminal::write(std::string_view text) const { writeAll(descriptor_.get(), text); }

std::optional<std::string> Terminal::ask(std::string_view prompt, Echo echo, const std::stop_token& stop) const {
    const LineSettings settings(descriptor_.get(), echo);
    write(prompt);
    try {
        Input line = readInput(descriptor_.get(), '\n', stop);
        if (!line.isComplete || echo == Echo::hidden) write("\n");
        if (!line.isComplete) return std::nullopt;
        return std::move(line.text);
    } catch (const CancellationError&) {
        write("\n");
        throw;
    }
}

Foreground::Foreground(const Terminal& terminal)
    : terminal_(terminal), previous_(::tcgetpgrp(terminal.descriptor_.get())) {
    ::tcsetpgrp(terminal.descriptor_.get(), ::getpgrp());
}

Foreground::~Foreground() {
    if (previous_ > 0) ::tcsetpgrp(terminal_.descriptor_.get(), previous_);
}

std::string askForPassphrase(const std::string& prompt, const std::stop_token& stop) {
    const std::optional<Terminal> terminal = Terminal::ofProcess();
    if (!terminal) throw std::runtime_error("a passphrase is needed and there is no terminal to ask on");
    if (auto line = terminal->ask(prompt, Echo::hidden, stop)) return *std::move(line);
    throw std::runtime_error("no passphrase was entered");
}

} // namespace corvane::Tools
