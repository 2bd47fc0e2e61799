#pragma once

#include "Support/UniqueDescriptor.hpp"

#include <sys/types.h>

#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

namespace corvane::Tools {

/// Input up to a delimiter, which is left out.
struct Input {
    std::string text;
    /// The delimiter came before the end, and before more than a line can have (1 MiB).
    bool isComplete = false;
};

/// Reads byte by byte: what follows the delimiter stays for others.
/// @throws CancellationError when a stop is requested while it waits
Input readInput(int descriptor, char delimiter, const std::stop_token& stop);

enum class Echo { shown, hidden };

/// The terminal that the process belongs to, wherever its standard streams lead.
class Terminal {
  public:
    /// Nothing when there is none.
    static std::optional<Terminal> ofProcess();

    void write(std::string_view text) const;
    /// One line that the user types; nothing when the input ends before. The keys that end input, interrupt and erase
    /// work; those that stop a process or make it dump its memory do not. The settings are given back on every way out.
    /// @throws CancellationError when a stop is requested, FileError
    std::optional<std::string> ask(std::string_view prompt, Echo echo, const std::stop_token& stop) const;

  private:
    friend class Foreground;
    explicit Terminal(UniqueDescriptor descriptor) : descriptor_(std::move(descriptor)) {}

    UniqueDescriptor descriptor_;
};

/// The foreground of a terminal, taken by a process of the background and given back by the destructor. SIGTTOU must
/// be blocked meanwhile.
class Foreground {
  public:
    /// @param terminal must outlive this
    explicit Foreground(const Terminal& terminal);
    Foreground(const Foreground&) = delete;
    Foreground& operator=(const Foreground&) = delete;
    ~Foreground();

  private:
    const Terminal& terminal_;
    pid_t previous_;
};

/// Asks for a passphrase on the process's terminal, which shows nothing of what is typed.
/// @throws std::runtime_error when there is no terminal, or the line ends before a line feed; CancellationError
std::string askForPassphrase(const std::string& prompt, const std::stop_token& stop);

} // namespace corvane::Tools
