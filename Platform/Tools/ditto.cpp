// Copies files and trees with everything that they have.

#include "Platform/Formats/TreeCopy/TreeCopy.hpp"
#include "Platform/Tools/Termination.hpp"
#include "Platform/Tools/Tool.hpp"
#include "Support/FileError.hpp"
#include "Support/Text.hpp"

namespace corvane::Tools {

int ditto(const Arguments& arguments) {
    if (arguments.size() != 2 || arguments[0].starts_with("-") || arguments[0].empty() || arguments[1].empty()) {
        throw UsageError("Usage: ditto SOURCE DESTINATION");
    }
    return runUntilTerminated([&](const std::stop_token& stop) {
        try {
            copyTree(arguments[0], arguments[1], stop);
            return 0;
        } catch (const FileError& error) {
            printError("ditto: " + Text::printable(error.url().string()) + ": " + error.code().message() + "\n");
            return 1;
        }
    });
}

} // namespace corvane::Tools
