// The two commands that only list: `identities` and `components`.

#include "Services/IdentityLocator.hpp"
#include "Services/PackageComponentCatalog.hpp"
#include "Services/PackageComponentJSON.hpp"
#include "Sources/CorvaneCLIKit/CLIApplication.hpp"
#include "Sources/CorvaneCLIKit/InterruptibleWork.hpp"
#include "Support/Text.hpp"

namespace corvane {
namespace {

std::string line(const PackageComponentDescriptor& component) {
    return component.identifier + "\t" + component.version + "\t" + component.archiveName + "\t" +
           (component.scripts.empty() ? "-" : Text::joined(component.scripts, ",")) + "\n";
}

} // namespace

std::int32_t CLIApplication::listIdentities(bool json) const {
    const std::vector<SigningIdentity> identities = runInterruptibly(&IdentityLocator::installerIdentities);
    if (json) {
        JSONValue names = JSONValue::array();
        for (const SigningIdentity& identity : identities) names.push_back(identity.name);
        emitJSON({{"event", "identities"}, {"identities", std::move(names)}});
        return 0;
    }
    if (identities.empty()) streams_->standardError("No Developer ID Installer identities found.\n");
    for (const SigningIdentity& identity : identities) streams_->standardOutput(identity.name + "\n");
    return 0;
}

std::int32_t CLIApplication::listComponents(const FileURL& inputURL, bool asJSON) const {
    if (!inputExists(inputURL, asJSON)) return 66;
    try {
        const std::vector<PackageComponentDescriptor> components = runInterruptibly(
            [&](const std::stop_token& stop) { return PackageComponentCatalog::inspect(inputURL, stop); });
        if (asJSON) {
            emitJSON({{"event", "components"}, {"components", encoded(components)}});
        } else {
            for (const PackageComponentDescriptor& component : components) streams_->standardOutput(line(component));
        }
        return 0;
    } catch (const PipelineError& error) {
        return emitFailure(error.errorDescription(), asJSON, 1);
    } catch (const std::exception& error) {
        return emitFailure(error.what(), asJSON, 1);
    }
}

} // namespace corvane
