#include "Services/PackageComponentEditor.hpp"

#include "Models/PipelineModels.hpp"
#include "Support/FileManager.hpp"
#include "Support/Text.hpp"
#include "Support/XML.hpp"

#include <algorithm>

namespace corvane::PackageComponentEditor {
namespace {

/// A link to a folder is none.
bool isRealDirectory(const FileURL& url) {
    std::error_code unreadable;
    return std::filesystem::symlink_status(url, unreadable).type() == std::filesystem::file_type::directory;
}

std::vector<std::string> scripts(const XML::Document& packageInfo) {
    std::vector<std::string> names;
    for (const XML::Node& node : packageInfo.query("//scripts/*")) {
        if (node.isElement()) names.push_back(node.attribute("file").value_or(node.name()));
    }
    Text::sortCanonically(names);
    return names;
}

PackageComponentDescriptor descriptor(const FileURL& folder, std::string archiveName) {
    const auto packageInfo = XML::Document::read(folder / "PackageInfo");
    const XML::Node root = packageInfo.root();
    const std::string identifier = root.attribute("identifier").value_or("");
    if (root.name() != "pkg-info" || identifier.empty()) {
        throw PipelineError::invalidInput("Cannot read component identifier from " + lastPathComponent(folder));
    }
    return {.archiveName = std::move(archiveName),
            .identifier = identifier,
            .version = root.attribute("version").value_or("0"),
            .installLocation = root.attribute("install-location").value_or("/"),
            .scripts = scripts(packageInfo)};
}

bool precedes(const PackageComponentDescriptor& left, const PackageComponentDescriptor& right) {
    if (Text::canonicallyPrecedes(left.identifier, right.identifier)) return true;
    if (Text::canonicallyPrecedes(right.identifier, left.identifier)) return false;
    return Text::canonicallyPrecedes(left.archiveName, right.archiveName);
}

} // namespace

std::vector<PackageComponentDescriptor> components(const FileURL& expandedPackage) {
    const FileURL distribution = expandedPackage / "Distribution";
    if (!FileManager::fileExists(distribution) || FileManager::isDirectory(distribution)) {
        return {descriptor(expandedPackage, "component.pkg")};
    }
    std::vector<PackageComponentDescriptor> found;
    for (const FileURL& entry : FileManager::contentsOfDirectory(expandedPackage)) {
        if (pathExtension(entry) == "pkg" && isRealDirectory(entry)) {
            found.push_back(descriptor(entry, lastPathComponent(entry)));
        }
    }
    std::stable_sort(found.begin(), found.end(), precedes);
    return found;
}

} // namespace corvane::PackageComponentEditor
