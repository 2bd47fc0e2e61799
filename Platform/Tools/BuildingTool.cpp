#include "Platform/Tools/BuildingTool.hpp"

#include "Platform/Tools/Termination.hpp"
#include "Platform/Tools/Tool.hpp"
#include "Support/CancellationError.hpp"
#include "Support/FileError.hpp"
#include "Support/Text.hpp"

#include <unistd.h>

#include <stdexcept>

namespace corvane::Tools {

int runBuilding(const std::string& name, const std::function<void(const std::stop_token& stop)>& work) {
    return runUntilTerminated([&](const std::stop_token& stop) {
        try {
            work(stop);
            return 0;
        } catch (const CancellationError&) {
            throw;
        } catch (const std::exception& error) {
            printError(Text::printable(name + ": error: " + error.what()) + "\n");
            return 1;
        }
    });
}

void requireWritable(const FileURL& package) {
    const auto refuse = [&](const std::string& reason) {
        throw std::runtime_error("Cannot write package to \"" + package.string() + "\". (" + reason + ")");
    };
    std::error_code error;
    if (std::filesystem::is_directory(package, error)) refuse("It is a folder.");
    const FileURL folder = std::filesystem::absolute(package).parent_path();
    if (::access(folder.c_str(), W_OK | X_OK) != 0) refuse(lastSystemError().message());
}

} // namespace corvane::Tools
