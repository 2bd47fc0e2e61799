#include "Services/PackagingPipeline/Context.hpp"

#include "Support/FileManager.hpp"

namespace corvane::Packaging {
namespace {

/// Runs without a stop token: a cancelled job still detaches.
bool detached(const FileURL& mountPoint, const std::vector<std::string>& options) {
    std::vector<std::string> arguments{"detach", mountPoint.string()};
    arguments.insert(arguments.end(), options.begin(), options.end());
    try {
        return CommandRunner::run("/usr/bin/hdiutil", arguments).succeeded();
    } catch (const std::exception&) {
        return false;
    }
}

} // namespace

void Context::cleanUp() const {
    if (mountPoint && ownsMount && !detached(*mountPoint, {"-quiet"}) && !detached(*mountPoint, {"-force", "-quiet"})) {
        log("WARNING: could not unmount " + mountPoint->string() + " - leaving " + workDirectory.string());
        return;
    }
    try {
        FileManager::removeItem(workDirectory);
    } catch (const std::exception&) { // it may never have been created
    }
}

} // namespace corvane::Packaging
