// Attaches and detaches disk images, and lists those that are attached.

#include "Platform/Mounts/Attachment.hpp"
#include "Platform/Tools/MountAnswers.hpp"
#include "Platform/Tools/MountListing.hpp"
#include "Platform/Tools/OptionList.hpp"
#include "Platform/Tools/Terminal.hpp"
#include "Platform/Tools/Termination.hpp"
#include "Platform/Tools/Tool.hpp"
#include "Support/CancellationError.hpp"
#include "Support/FileError.hpp"
#include "Support/Text.hpp"

#include <unistd.h>

#include <algorithm>

namespace corvane::Tools {
namespace {

constexpr const char* usage =
    "Usage: hdiutil attach IMAGE [-mountpoint FOLDER] [-stdinpass] [-quiet] [-nobrowse] [-noautoopen] [-readonly]\n"
    "       hdiutil detach {FOLDER | DEVICE} [-force] [-quiet]\n"
    "       hdiutil info [-plist]\n"
    "-nobrowse, -noautoopen and -readonly name what happens anyway.";

/// Asks on the terminal, or reads what another program answers on standard input.
class StandardConsent : public MountConsent {
  public:
    StandardConsent(bool readsPassword, std::stop_token stop) : readsPassword_(readsPassword), stop_(std::move(stop)) {}

    std::string password(const FileURL& image, unsigned failures) override {
        const bool isTerminal = ::isatty(STDIN_FILENO) == 1;
        if (failures == (isTerminal ? passwordTries : 1)) throw ConsentError("the password is wrong");
        if (isTerminal) return askForPassphrase(passwordPrompt(image), stop_);
        Input input;
        if (readsPassword_) input = readInput(STDIN_FILENO, '\0', stop_);
        // Programs that write lines do not mean the line feed.
        if (!input.isComplete && input.text.ends_with('\n')) input.text.pop_back();
        if (input.text.empty()) throw ConsentError("the image is encrypted and needs a password");
        return input.text;
    }

    bool agrees(const std::string& licence) override {
        return agreesToLicence(licence, [&](const std::string& prompt) -> std::optional<std::string> {
            print(prompt);
            const Input answer = readInput(STDIN_FILENO, '\n', stop_);
            if (answer.text.empty() && !answer.isComplete) return std::nullopt;
            return answer.text;
        });
    }

  private:
    bool readsPassword_;
    std::stop_token stop_;
};

/// An attach that cannot say where the volume is has failed.
void announce(const MountRecord& mount) {
    try {
        print(entityTable(mount));
    } catch (const FileError&) {
        detach(mount, true);
        throw;
    }
}

int attachImage(const OptionList& options) {
    const FileURL image = options.operands()[0];
    const bool isQuiet = options.has("-quiet");
    return runUntilTerminated([&](const std::stop_token& stop) {
        try {
            StandardConsent consent(options.has("-stdinpass"), stop);
            const MountRecord mount = attach(image, options.value("-mountpoint"), consent, stop);
            if (!isQuiet) announce(mount);
            return 0;
        } catch (const CancellationError&) {
            throw;
        } catch (const std::exception& error) {
            if (!isQuiet) printError("hdiutil: attach failed - " + attachFailure(image, error) + "\n");
            return 1;
        }
    });
}

/// The folder by any of its names, or one of the devices, with or without "/dev/".
bool isMeant(const MountRecord& mount, const std::string& name) {
    std::error_code ignored;
    if (std::filesystem::equivalent(name, mount.mountPoint, ignored)) return true;
    return std::any_of(mount.entities.begin(), mount.entities.end(), [&](const DiskEntity& entity) {
        const std::string device = deviceName(mount, entity);
        return name == device || "/dev/" + name == device;
    });
}

void detachImage(const std::string& name, bool force, bool isQuiet) {
    const std::vector<MountRecord> mounts = MountRegistry::ofUser().mounts();
    const auto mount =
        std::find_if(mounts.begin(), mounts.end(), [&](const MountRecord& each) { return isMeant(each, name); });
    if (mount == mounts.end()) throw std::runtime_error("No such file or directory");
    detach(*mount, force);
    if (!isQuiet) print("\"disk" + std::to_string(mount->device) + "\" ejected.\n");
}

int detachImage(const OptionList& options) {
    const bool isQuiet = options.has("-quiet");
    try {
        detachImage(options.operands()[0], options.has("-force"), isQuiet);
        return 0;
    } catch (const std::exception& error) {
        if (!isQuiet) printError("hdiutil: detach failed - " + Text::printable(error.what()) + "\n");
        return 1;
    }
}

int listImages(const OptionList& options) {
    const std::vector<MountRecord> mounts = MountRegistry::ofUser().mounts();
    print(options.has("-plist") ? imageList(mounts) : imageListing(mounts));
    return 0;
}

OptionList parse(const Arguments& arguments, const std::vector<std::string>& valued,
                 const std::vector<std::string>& flags, std::size_t operandCount) {
    OptionList options(arguments, valued, flags, usage);
    if (options.operands().size() != operandCount) throw UsageError(usage);
    return options;
}

} // namespace

int hdiutil(const Arguments& arguments) {
    if (arguments.empty()) throw UsageError(usage);
    const std::string& command = arguments[0];
    const Arguments rest(arguments.begin() + 1, arguments.end());
    if (command == "attach") {
        return attachImage(
            parse(rest, {"-mountpoint"}, {"-stdinpass", "-quiet", "-nobrowse", "-noautoopen", "-readonly"}, 1));
    }
    if (command == "detach") return detachImage(parse(rest, {}, {"-force", "-quiet"}, 1));
    if (command == "info") return listImages(parse(rest, {}, {"-plist"}, 0));
    throw UsageError(usage);
}

} // namespace corvane::Tools
