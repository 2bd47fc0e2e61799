#include "Platform/Formats/FlatPackage/Bundle.hpp"

#include "Support/CancellationError.hpp"
#include "Support/FileError.hpp"
#include "Support/PropertyList.hpp"

#include <algorithm>
#include <set>

namespace corvane::FlatPackage {
namespace {

bool contains(const FileURL& folder, const FileURL& url) {
    return std::mismatch(folder.begin(), folder.end(), url.begin(), url.end()).first == folder.end();
}

/// The real path of a file; nothing when there is none, or links lead out of the root to it.
std::optional<FileURL> fileWithin(const FileURL& realRoot, const FileURL& url) {
    std::error_code error;
    FileURL real = std::filesystem::canonical(url, error);
    if (error || !contains(realRoot, real) || !std::filesystem::is_regular_file(real, error)) return std::nullopt;
    return real;
}

/// The real path of a folder's Info.plist.
std::optional<FileURL> informationFile(const FileURL& folder, const FileURL& realRoot) {
    auto file = fileWithin(realRoot, folder / "Contents/Info.plist");
    return file ? file : fileWithin(realRoot, folder / "Resources/Info.plist");
}

std::optional<PropertyList::Value> readIfPossible(const FileURL& url) {
    try {
        return PropertyList::read(url);
    } catch (const FileError&) {
        return std::nullopt;
    } catch (const PropertyList::Error&) {
        return std::nullopt;
    }
}

std::optional<std::string> text(const std::optional<PropertyList::Value>& list, const char* key) {
    const PropertyList::Value* value = list ? list->find(key) : nullptr;
    const auto* found = value != nullptr ? value->get<std::string>() : nullptr;
    if (found == nullptr || found->empty()) return std::nullopt;
    return *found;
}

std::optional<Bundle> readBundle(const std::string& path, const FileURL& information, const FileURL& realRoot) {
    const auto list = readIfPossible(information);
    const auto identifier = text(list, "CFBundleIdentifier");
    if (!identifier) return std::nullopt;
    Bundle bundle{.path = path,
                  .identifier = *identifier,
                  .shortVersion = text(list, "CFBundleShortVersionString"),
                  .version = text(list, "CFBundleVersion"),
                  .sourceVersion = text(list, "SourceVersion"),
                  .buildVersion = text(list, "BuildVersion")};
    // The platform's own builds note these two in a list beside.
    const auto versionFile = fileWithin(realRoot, information.parent_path() / "version.plist");
    const auto versions = versionFile ? readIfPossible(*versionFile) : std::nullopt;
    if (!bundle.sourceVersion) bundle.sourceVersion = text(versions, "SourceVersion");
    if (!bundle.buildVersion) bundle.buildVersion = text(versions, "BuildVersion");
    return bundle;
}

} // namespace

std::vector<Bundle> findBundles(const FolderTree& tree, const std::stop_token& stop) {
    const FileURL realRoot = std::filesystem::canonical(tree.root());
    std::set<FileURL> known;
    std::vector<Bundle> bundles;
    std::string outermost;
    for (const FolderTree::Entry& entry : tree.entries()) {
        if (!entry.isDirectory() || entry.path == ".") continue;
        checkCancellation(stop);
        const auto information = informationFile(tree.url(entry), realRoot);
        if (!information || !known.insert(*information).second) continue;
        auto bundle = readBundle(entry.path, *information, realRoot);
        if (!bundle) continue;
        bundle->isNested = !outermost.empty() && entry.path.starts_with(outermost + "/");
        if (!bundle->isNested) outermost = entry.path;
        bundles.push_back(*std::move(bundle));
    }
    return bundles;
}

} // namespace corvane::FlatPackage
