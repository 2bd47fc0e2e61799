// The flow of `recompress`: expands the vendor's package, removes components on request, builds the others anew, and
// puts them together again.

#include "Services/PackageComponentEditor.hpp"
#include "Services/PackagingPipeline/ComponentRebuild.hpp"
#include "Services/PackagingPipeline/Flows.hpp"
#include "Services/PackagingPipeline/ResultVerification.hpp"
#include "Support/FileManager.hpp"
#include "Support/Text.hpp"

#include <algorithm>

namespace corvane::Packaging {
namespace {

using Components = std::vector<PackageComponentDescriptor>;

FileURL expandInput(const Context& context) {
    context.begin(PipelineStep::expand);
    FileURL expanded = context.workDirectory / "expand";
    const std::string input = context.configuration.inputURL.string();
    if (!context.run("/usr/sbin/pkgutil", {"--expand-full", input, expanded.string()}).succeeded()) {
        throw PipelineError::invalidInput("Not a flat pkg, or expansion failed");
    }
    context.end(PipelineStep::expand);
    return expanded;
}

Components removeComponents(const Context& context, const FileURL& expanded) {
    Components removed =
        PackageComponentEditor::removeComponents(context.configuration.componentIdentifiersToRemove, expanded);
    for (const PackageComponentDescriptor& component : removed) {
        const std::string scripts =
            component.scripts.empty() ? "no component scripts" : "scripts: " + Text::joined(component.scripts, ", ");
        context.log("Removing component " + component.identifier + " from " + component.archiveName + " (" + scripts +
                    ")");
    }
    return removed;
}

bool isKeptComponent(const FileURL& entry, const Components& removed) {
    if (pathExtension(entry) != "pkg" || !S_ISDIR(FileManager::itemStatus(entry).st_mode)) return false;
    const std::string name = lastPathComponent(entry);
    return std::none_of(removed.begin(), removed.end(), [&](const PackageComponentDescriptor& component) {
        return Text::canonicallyEqual(component.archiveName, name);
    });
}

/// Builds the kept components into a folder and returns how many they are.
std::size_t rebuildComponents(const Context& context, const FileURL& expanded, const Components& removed,
                              const FileURL& rebuilt) {
    FileManager::createDirectory(rebuilt);
    std::size_t count = 0;
    for (const FileURL& entry : FileManager::contentsOfDirectory(expanded)) {
        if (!isKeptComponent(entry, removed)) continue;
        rebuildComponent(context, entry, rebuilt / lastPathComponent(entry), true);
        ++count;
    }
    if (count == 0) throw PipelineError::invalidInput("Distribution archive contains no component packages");
    return count;
}

void rebuildDistribution(const Context& context, const FileURL& expanded, const Components& removed,
                         const FileURL& product) {
    const FileURL rebuilt = context.workDirectory / "rebuilt";
    const std::size_t count = rebuildComponents(context, expanded, removed, rebuilt);
    std::vector<std::string> arguments{"--distribution", (expanded / "Distribution").string(), "--package-path",
                                       rebuilt.string()};
    const FileURL resources = expanded / "Resources";
    if (FileManager::isDirectory(resources)) {
        arguments.insert(arguments.end(), {"--resources", resources.string()});
    }
    arguments.push_back(product.string());
    context.log("Reassembling distribution archive (" + std::to_string(count) + " component(s))");
    context.runChecked("/usr/bin/productbuild", arguments);
}

FileURL buildProduct(const Context& context, const FileURL& expanded, const Components& removed) {
    context.begin(PipelineStep::build);
    FileURL product = context.workDirectory / "unsigned.pkg";
    const FileURL distribution = expanded / "Distribution";
    if (FileManager::fileExists(distribution) && !FileManager::isDirectory(distribution)) {
        rebuildDistribution(context, expanded, removed, product);
    } else {
        rebuildComponent(context, expanded, product, false);
    }
    context.end(PipelineStep::build);
    return product;
}

} // namespace

FileURL runRecompress(Context& context) {
    FileManager::createPrivateDirectory(context.workDirectory);
    gatekeeperInstallGate(context);
    const FileURL expanded = expandInput(context);
    const Components removed = removeComponents(context, expanded);
    const FileURL product = buildProduct(context, expanded, removed);
    const PipelineConfiguration& configuration = context.configuration;
    const std::string name =
        deletingPathExtension(lastPathComponent(configuration.inputURL)).string() + "-recompressed.pkg";
    const FileURL outputURL = configuration.outputDirectory / name;
    signAndVerify(context, product, outputURL, expanded, removed);
    return outputURL;
}

} // namespace corvane::Packaging
