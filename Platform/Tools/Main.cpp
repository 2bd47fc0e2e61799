// One executable for all portable tools: the name under which it is called, or else its first argument, says which.

#include "Platform/Tools/Tool.hpp"
#include "Support/FileError.hpp"
#include "Support/FileURL.hpp"
#include "Support/Text.hpp"
#include "Support/WriteAll.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>

namespace corvane::Tools {
namespace {

constexpr std::array<Tool, 15> tools{{
    {"codesign", "verify and describe code signatures", &codesign},
    {"diff", "say which files of two trees differ", &diff},
    {"ditto", "copy files and trees with all that they have", &ditto},
    {"hdiutil", "attach and detach disk images", &hdiutil},
    {"installer", "say what a package would install", &installer},
    {"lsbom", "list what a Bom describes", &lsbom},
    {"open", "attach a disk image, asking on the terminal", &open},
    {"pkgbuild", "make component packages", &pkgbuild},
    {"pkgutil", "open and close packages, report on signatures", &pkgutil},
    {"plutil", "extract values from property lists", &plutil},
    {"productbuild", "make products of component packages", &productbuild},
    {"productsign", "sign a package", &productsign},
    {"security", "show and change the keychain", &security},
    {"spctl", "say whether a Mac accepts an application or package", &spctl},
    {"xattr", "show and change extended attributes", &xattr},
}};

const Tool* find(std::string_view name) {
    const auto found = std::find_if(tools.begin(), tools.end(), [&](const Tool& tool) { return tool.name == name; });
    return found == tools.end() ? nullptr : &*found;
}

std::string usage() {
    std::string text = "Usage: corvane-platform <tool> [arguments]\n\nTools:\n";
    for (const Tool& tool : tools) {
        text +=
            "  " + std::string(tool.name) + std::string(14 - tool.name.size(), ' ') + std::string(tool.summary) + "\n";
    }
    return text;
}

int runTool(const Tool& tool, const Arguments& arguments) {
    try {
        return tool.run(arguments);
    } catch (const UsageError& error) {
        printError(std::string(error.what()) + "\n");
        return error.status();
    } catch (const std::exception& error) {
        printError(Text::printable(std::string(tool.name) + ": " + error.what()) + "\n");
        return 1;
    }
}

int run(const std::string& name, Arguments arguments) {
    if (const Tool* tool = find(name)) return runTool(*tool, arguments);
    if (arguments.empty() || arguments[0] == "-h" || arguments[0] == "--help") {
        print(usage());
        return 0;
    }
    const Tool* tool = find(arguments[0]);
    if (tool == nullptr) {
        printError("corvane-platform: unknown tool: " + arguments[0] + "\n");
        return 64;
    }
    arguments.erase(arguments.begin());
    return runTool(*tool, arguments);
}

/// A file that is opened must not come to stand where a closed standard stream was. The stream stays unusable.
void holdClosedStreams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(stream, F_GETFD) >= 0) continue;
        ::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
}

} // namespace

void print(std::string_view text) {
    if (!writeAll(STDOUT_FILENO, text)) throw FileError("Cannot write", "standard output", lastSystemError());
}
void printError(std::string_view text) { writeAll(STDERR_FILENO, text); }

} // namespace corvane::Tools

int main(int count, char** arguments) {
    corvane::Tools::holdClosedStreams();
    const std::string name = corvane::lastPathComponent(arguments[0]);
    return corvane::Tools::run(name, {arguments + 1, arguments + count});
}
