// Says which files of two trees differ. It shows no content.

#include "Platform/Tools/Tool.hpp"
#include "Platform/Tools/TreeComparison.hpp"
#include "Support/FileError.hpp"

namespace corvane::Tools {

int diff(const Arguments& arguments) {
    const bool known = arguments.size() == 4 && arguments[0] == "-r" && arguments[1] == "-q";
    if (!known) throw UsageError("Usage: diff -r -q FILE FILE");
    TreeComparison comparison([](const std::string& line) { print(line + "\n"); },
                              [](const std::string& text) { printError("diff: " + text + "\n"); });
    try {
        return static_cast<int>(comparison.compare(arguments[2], arguments[3]));
    } catch (const FileError& error) {
        printError(std::string("diff: ") + error.what() + "\n");
        return static_cast<int>(TreeComparison::Result::trouble);
    }
}

} // namespace corvane::Tools
