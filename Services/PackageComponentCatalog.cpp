#include "Services/PackageComponentCatalog.hpp"

#include "Models/PipelineModels.hpp"
#include "Services/CommandRunner.hpp"
#include "Services/PackageComponentEditor.hpp"
#include "Support/TemporaryDirectory.hpp"

namespace corvane::PackageComponentCatalog {

std::vector<PackageComponentDescriptor> inspect(const FileURL& packageURL, const std::stop_token& stop) {
    const TemporaryDirectory work("corvane-components-");
    const FileURL expanded = work.url() / "expanded";
    const std::vector<std::string> arguments{"--expand", packageURL.string(), expanded.string()};
    if (!CommandRunner::run("/usr/sbin/pkgutil", arguments, stop).succeeded()) {
        throw PipelineError::invalidInput("Not a flat pkg, or metadata expansion failed");
    }
    return PackageComponentEditor::components(expanded);
}

} // namespace corvane::PackageComponentCatalog
