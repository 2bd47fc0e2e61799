#include "Services/PackageBundleInventory.hpp"

#include "Models/CorvaneVersion.hpp"
#include "Models/PipelineModels.hpp"
#include "Support/FileManager.hpp"
#include "Support/PropertyList.hpp"
#include "Support/Text.hpp"
#include "Support/XML.hpp"

#include <algorithm>

namespace corvane::PackageBundleInventory {
namespace {

bool isHidden(const FileURL& url) { return lastPathComponent(url).starts_with('.'); }

bool hasExtension(const FileURL& url, std::string_view extension) {
    return Text::lowercased(pathExtension(url)) == extension;
}

std::vector<FileURL> componentDirectories(const FileURL& root) {
    if (FileManager::fileExists(root / "PackageInfo")) return {root};
    std::vector<FileURL> folders = FileManager::contentsOfDirectory(root);
    std::erase_if(folders, [](const FileURL& url) {
        return isHidden(url) || !hasExtension(url, "pkg") || !FileManager::fileExists(url / "PackageInfo");
    });
    return folders;
}

bool isTopLevelApplication(const std::optional<std::string>& path) {
    if (!path || path->empty()) return false;
    const FileURL url = standardized(std::filesystem::absolute(*path));
    return hasExtension(url, "app") && deletingLastPathComponent(url) == "/Applications";
}

/// Where a bundle at a path in the payload will be installed.
std::optional<std::string> resolvedInstallPath(const std::optional<std::string>& installLocation,
                                               std::string_view bundlePath) {
    const bool hasLocation = installLocation && !installLocation->empty();
    if (bundlePath.empty()) return hasLocation ? installLocation : std::nullopt;
    while (bundlePath.starts_with("./")) bundlePath.remove_prefix(2);
    if (bundlePath.starts_with('/')) return standardized(bundlePath).string();
    if (!hasLocation) return std::string(bundlePath);
    return standardized(*installLocation + "/" + std::string(bundlePath)).string();
}

std::optional<std::string> text(const PropertyList::Value& list, std::string_view key) {
    const PropertyList::Value* value = list.find(key);
    const auto* string = value != nullptr ? value->get<std::string>() : nullptr;
    if (string == nullptr || string->empty()) return std::nullopt;
    return *string;
}

/// The content of an application's Info.plist, which must be a file: reading a device might never end.
std::string infoPropertyList(const FileURL& url, const std::string& application) {
    try {
        std::error_code unreadable;
        if (std::filesystem::is_regular_file(url, unreadable)) {
            return FileManager::readFile(url, PropertyList::sizeLimit);
        }
    } catch (const FileError&) { // told below
    }
    throw PipelineError::invalidInput("Cannot read Info.plist from top-level app " + application);
}

Entry entry(const FileURL& application) {
    const std::string name = lastPathComponent(application);
    const FileURL url = application / "Contents/Info.plist";
    const PropertyList::Value list = PropertyList::parse(infoPropertyList(url, name), url.string());
    auto identifier = text(list, "CFBundleIdentifier");
    if (!identifier) throw PipelineError::invalidInput("Top-level app " + name + " has no CFBundleIdentifier");
    return {.bundleID = std::move(*identifier), .shortVersion = text(list, "CFBundleShortVersionString")};
}

/// The applications below a folder that do not lie in another one, without those in hidden folders. A folder that
/// cannot be listed ends the search.
std::vector<FileURL> outermostApplications(const FileURL& base) {
    std::vector<FileURL> applications;
    std::vector<FileURL> folders{base};
    while (!folders.empty()) {
        std::vector<FileURL> children;
        try {
            children = FileManager::contentsOfDirectory(folders.back());
        } catch (const FileError&) {
            break;
        }
        folders.pop_back();
        for (FileURL& child : children) {
            if (isHidden(child) || !S_ISDIR(FileManager::itemStatus(child).st_mode)) continue;
            (hasExtension(child, "app") ? applications : folders).push_back(std::move(child));
        }
    }
    return applications;
}

std::vector<Entry> componentEntries(const FileURL& component) {
    const auto packageInfo = XML::Document::read(component / "PackageInfo");
    if (packageInfo.root().name() != "pkg-info") {
        throw PipelineError::invalidInput("Cannot parse PackageInfo while creating bundle inventory");
    }
    const auto installLocation = packageInfo.root().attribute("install-location");
    const FileURL payload = component / "Payload";
    if (!FileManager::fileExists(payload)) return {};
    if (isTopLevelApplication(installLocation)) return {entry(payload)};
    const FileURL base = std::filesystem::canonical(payload);
    std::vector<Entry> found;
    for (const FileURL& application : outermostApplications(base)) {
        const std::string path = application.lexically_relative(base).string();
        if (isTopLevelApplication(resolvedInstallPath(installLocation, path))) found.push_back(entry(application));
    }
    return found;
}

bool precedes(const Entry& left, const Entry& right) {
    if (!Text::canonicallyEqual(left.bundleID, right.bundleID)) {
        return Text::canonicallyPrecedes(left.bundleID, right.bundleID);
    }
    return Text::canonicallyPrecedes(left.shortVersion.value_or(""), right.shortVersion.value_or(""));
}

/// On one line.
std::string flattened(std::string value) {
    std::replace_if(
        value.begin(), value.end(), [](char byte) { return byte == '\r' || byte == '\n'; }, ' ');
    return value;
}

} // namespace

std::vector<Entry> entries(const FileURL& expandedPackage) {
    std::vector<Entry> all;
    for (const FileURL& component : componentDirectories(expandedPackage)) {
        for (Entry& found : componentEntries(component)) all.push_back(std::move(found));
    }
    std::sort(all.begin(), all.end(), &precedes);
    all.erase(std::unique(all.begin(), all.end()), all.end());
    return all;
}

std::string render(const std::vector<Entry>& entries, const std::string& packageName) {
    std::string result = "Corvane bundle inventory\nPackage: " + flattened(packageName) + "\nGenerated by: Corvane " +
                         std::string(CorvaneVersion::current) + "\n";
    if (entries.empty()) result += "\nNo top-level .app bundles under /Applications were found in the package.\n";
    for (const Entry& entry : entries) {
        result +=
            "\nApp bundle ID (CFBundleIdentifier): " + flattened(entry.bundleID) +
            "\nApp version (CFBundleShortVersionString): " + flattened(entry.shortVersion.value_or("not specified")) +
            "\n";
    }
    return result;
}

} // namespace corvane::PackageBundleInventory
