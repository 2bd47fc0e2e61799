#include "Services/PackagingPipeline/SideFiles.hpp"

#include "Services/PackageBundleInventory.hpp"
#include "Services/PackageChangeReport.hpp"
#include "Support/FileManager.hpp"
#include "Support/Text.hpp"
#include "Support/UUID.hpp"

namespace corvane::Packaging {
namespace {

FileURL expandCandidate(const Context& context, const FileURL& candidate) {
    FileURL expanded = context.workDirectory / ("bundle-inventory-" + makeUUID());
    CommandRunner::runChecked("/usr/sbin/pkgutil", {"--expand-full", candidate.string(), expanded.string()},
                              context.stop, "pkgutil could not read application metadata");
    return expanded;
}

} // namespace

SideFiles::SideFiles(const Context& context, const FileURL& candidate, const std::optional<FileURL>& expanded,
                     const FileURL& outputURL, const std::vector<PackageComponentDescriptor>& removedComponents) {
    if (context.configuration.writeBundleInventory) {
        context.log("Reading top-level /Applications app IDs and versions");
        const auto entries =
            PackageBundleInventory::entries(expanded ? *expanded : expandCandidate(context, candidate));
        FileURL written = context.workDirectory / "bundle-inventory.txt";
        FileManager::writeFileAtomically(
            written, Text::decodedUTF8(PackageBundleInventory::render(entries, lastPathComponent(outputURL))));
        files_.push_back({"Bundle inventory", std::move(written), replacingPathExtension(outputURL, "bundles.txt")});
    }
    if (!removedComponents.empty()) {
        FileURL written = context.workDirectory / "package-changes.json";
        PackageChangeReport::write(context.configuration.inputURL, outputURL, removedComponents, written);
        files_.push_back({"Change report", std::move(written), replacingPathExtension(outputURL, "changes.json")});
    }
}

void SideFiles::place(const Context& context) const {
    for (const auto& [title, written, destination] : files_) {
        if (FileManager::fileExists(destination)) FileManager::removeItem(destination);
        FileManager::moveItem(written, destination);
        context.log(title + ": " + destination.string());
    }
}

} // namespace corvane::Packaging
