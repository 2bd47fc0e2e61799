// Attaches a disk image for a program that cannot ask its user itself, and leaves all other files to the desktop.

#include "Platform/Mounts/Attachment.hpp"
#include "Platform/Tools/MountAnswers.hpp"
#include "Platform/Tools/Terminal.hpp"
#include "Platform/Tools/Termination.hpp"
#include "Platform/Tools/Tool.hpp"
#include "Support/CancellationError.hpp"
#include "Support/FileError.hpp"
#include "Support/ProgramFile.hpp"
#include "Support/Text.hpp"

#include <signal.h>
#include <unistd.h>

#include <algorithm>

namespace corvane::Tools {
namespace {

constexpr const char* usage = "Usage: open FILE";

/// Asks on the terminal, whose foreground another program has.
class TerminalConsent : public MountConsent {
  public:
    TerminalConsent(const std::optional<Terminal>& terminal, std::stop_token stop)
        : terminal_(terminal), stop_(std::move(stop)) {}

    std::string password(const FileURL& image, unsigned failures) override {
        if (failures == passwordTries) throw ConsentError("the password is wrong");
        if (failures > 0) terminal_->write("The password is wrong.\n");
        if (auto line = ask(passwordPrompt(image), Echo::hidden)) return *std::move(line);
        throw ConsentError("the image is encrypted and needs a password");
    }

    bool agrees(const std::string& licence) override {
        return agreesToLicence(licence, [&](const std::string& prompt) { return ask(prompt, Echo::shown); });
    }

  private:
    /// Whoever interrupts the question, or ends the program that waits for it, gives no answer.
    std::optional<std::string> ask(const std::string& prompt, Echo echo) {
        if (!terminal_) return std::nullopt;
        const Foreground foreground(*terminal_);
        try {
            return terminal_->ask(prompt, echo, stop_);
        } catch (const CancellationError&) {
            return std::nullopt;
        }
    }

    const std::optional<Terminal>& terminal_;
    std::stop_token stop_;
};

/// Text for whoever sits at the terminal, also where the standard stream leads elsewhere.
void tell(const std::optional<Terminal>& terminal, int stream, const std::string& text) {
    if (terminal && ::isatty(stream) != 1) terminal->write(text);
    if (stream == STDERR_FILENO) return printError(text);
    print(text);
}

std::string shellQuoted(const std::string& text) {
    std::string quoted = "'";
    for (const char character : text) quoted += character == '\'' ? std::string("'\\''") : std::string(1, character);
    return quoted + "'";
}

/// Programs lie in <prefix>/bin, the tools in <prefix>/libexec/corvane.
std::string placeAndWayOut(const MountRecord& mount) {
    const FileURL tool = programFile().parent_path().parent_path() / "libexec/corvane/hdiutil";
    return Text::printable(mount.mountPoint.string()) + ".\nTo detach it: " +
           Text::printable(shellQuoted(tool.string()) + " detach " + shellQuoted(mount.mountPoint.string())) + "\n";
}

std::optional<MountRecord> existingMount(const FileURL& image) {
    std::error_code ignored;
    const FileURL url = std::filesystem::canonical(image, ignored);
    const std::vector<MountRecord> mounts = MountRegistry::ofUser().mounts();
    const auto mount =
        std::find_if(mounts.begin(), mounts.end(), [&](const MountRecord& each) { return each.imagePath == url; });
    if (mount == mounts.end()) return std::nullopt;
    return *mount;
}

int openImage(const FileURL& image, const std::optional<Terminal>& terminal, const std::stop_token& stop) {
    const std::string name = Text::printable(lastPathComponent(image));
    if (const auto mount = existingMount(image)) {
        tell(terminal, STDOUT_FILENO, name + " is already attached at " + placeAndWayOut(*mount));
        return 0;
    }
    TerminalConsent consent(terminal, stop);
    const MountRecord mount = attach(image, std::nullopt, consent, stop);
    tell(terminal, STDOUT_FILENO, name + " is attached at " + placeAndWayOut(mount));
    return 0;
}

int openImage(const FileURL& image) {
    // A process of the background may then write to the terminal and change its settings.
    sigset_t background;
    sigemptyset(&background);
    sigaddset(&background, SIGTTOU);
    ::pthread_sigmask(SIG_BLOCK, &background, nullptr);
    return runUntilTerminated([&](const std::stop_token& stop) {
        const std::optional<Terminal> terminal = Terminal::ofProcess();
        try {
            return openImage(image, terminal, stop);
        } catch (const CancellationError&) {
            throw;
        } catch (const std::exception& error) {
            tell(terminal, STDERR_FILENO, "open: " + attachFailure(image, error) + "\n");
            return 1;
        }
    });
}

/// Does not come back unless it fails.
int openByDesktop(std::string file) {
    std::string program = "xdg-open";
    char* const arguments[] = {program.data(), file.data(), nullptr};
    ::execvp(program.c_str(), arguments);
    throw FileError("Cannot run", program, lastSystemError());
}

} // namespace

int open(const Arguments& arguments) {
    if (arguments.size() != 1 || arguments[0].empty() || arguments[0].starts_with("-")) throw UsageError(usage);
    if (Text::lowercased(arguments[0]).ends_with(".dmg")) return openImage(arguments[0]);
    return openByDesktop(arguments[0]);
}

} // namespace corvane::Tools
