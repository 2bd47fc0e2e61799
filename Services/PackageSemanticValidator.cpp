#include "Services/PackageSemanticValidator.hpp"

#include "Services/CommandRunner.hpp"
#include "Services/PackageSemanticValidator/ContentComparison.hpp"
#include "Services/PackageSemanticValidator/DistributionComparison.hpp"
#include "Services/PackageSemanticValidator/PackageInfoMetadata.hpp"
#include "Services/PackageSemanticValidator/PackageLayout.hpp"
#include "Support/FileManager.hpp"
#include "Support/UUID.hpp"

namespace corvane::PackageSemanticValidator {
namespace {

NameSet componentNames(const PackageLayout& layout) {
    NameSet names;
    for (const auto& [name, folder] : layout.components) names.insert(name);
    return names;
}

NameSet names(const FileURL& folder) {
    NameSet names;
    for (const FileURL& entry : FileManager::contentsOfDirectory(folder)) names.insert(lastPathComponent(entry));
    return names;
}

NameSet without(NameSet names, const NameSet& removed) {
    for (const std::string& name : removed) names.erase(name);
    return names;
}

void compareComponent(const std::string& name, const FileURL& original, const FileURL& rebuilt,
                      const Expectations& expectations, const std::stop_token& stop) {
    comparePackageInfo(original / "PackageInfo", rebuilt / "PackageInfo", expectations.modernCompression,
                       expectations.requestedMinOS, name);
    compareOptionalDirectory(existingDirectory(original / "Scripts"), existingDirectory(rebuilt / "Scripts"),
                             "scripts in " + name, stop);
    compareOptionalDirectory(existingDirectory(original / "Payload"), existingDirectory(rebuilt / "Payload"),
                             "payload in " + name, stop);
    compareBOM(original / "Bom", rebuilt / "Bom", name, stop);
    // Nothing else that the vendor put there is rebuilt, so it must not be there.
    requireSameNames("contents of " + name, names(original), names(rebuilt));
}

} // namespace

FileURL validate(const FileURL& originalExpanded, const FileURL& rebuiltPackage, const Expectations& expectations,
                 const FileURL& workDirectory, const std::stop_token& stop) {
    FileURL expanded = workDirectory / ("semantic-validation-" + makeUUID());
    CommandRunner::runChecked("/usr/sbin/pkgutil", {"--expand-full", rebuiltPackage.string(), expanded.string()}, stop);
    const PackageLayout original = packageLayout(originalExpanded);
    const PackageLayout rebuilt = packageLayout(expanded);
    const NameSet& removed = expectations.removedComponentArchiveNames;
    requireSameNames("top-level package layout", without(original.topLevelNames, removed), rebuilt.topLevelNames);
    const NameSet expectedComponents = without(componentNames(original), removed);
    requireSameNames("component package list", expectedComponents, componentNames(rebuilt));
    compareDistribution(original.distribution, rebuilt.distribution, rebuilt.components);
    compareOptionalDirectory(original.resources, rebuilt.resources, "installer resources", stop);
    for (const std::string& name : expectedComponents) {
        compareComponent(name, original.components.at(name), rebuilt.components.at(name), expectations, stop);
    }
    return expanded;
}

} // namespace corvane::PackageSemanticValidator
