#include "Platform/Formats/CodeBundle/BundleLayout.hpp"

#include "Platform/Formats/CodeBundle/FileKind.hpp"
#include "Support/FileManager.hpp"

namespace corvane {
namespace {

/// A name that leads to no other folder.
bool isPlainName(std::string_view name) {
    constexpr std::string_view separators("/\0", 2);
    return !name.empty() && name != "." && name != ".." && name.find_first_of(separators) == std::string_view::npos;
}

/// The name of a framework's current version, "A"; the folder Current may be the version itself. Empty when the link
/// leads elsewhere.
std::string currentVersion(const FileURL& versions) {
    const FileURL current = versions / "Current";
    if (!FileKind::isLink(current)) return "Current";
    std::string target = FileManager::linkTarget(current);
    if (target.starts_with("./")) target.erase(0, 2);
    return isPlainName(target) ? target : "";
}

/// The name of a bundle without a name for its executable.
std::string defaultExecutableName(const FileURL& root) {
    return deletingPathExtension(lastPathComponent(standardized(std::filesystem::absolute(root)))).string();
}

std::string executableName(const BundleLayout& layout) {
    const PropertyList::Value* value = layout.infoPropertyList.find("CFBundleExecutable");
    if (value == nullptr) return defaultExecutableName(layout.root);
    const auto* name = value->get<std::string>();
    return name != nullptr ? *name : "";
}

/// Whether a folder is there, and no link but the one that leads to the bundle itself.
bool isFolderOf(const BundleLayout& layout, const FileURL& folder) {
    return folder == layout.root || FileKind::isFolder(folder);
}

/// Finds Info.plist and the executable in their folders.
std::optional<BundleLayout> completed(BundleLayout layout, const FileURL& infoFolder, const FileURL& executableFolder) {
    const FileURL info = infoFolder / "Info.plist";
    if (isFolderOf(layout, infoFolder) && FileKind::leadsToFile(info)) {
        layout.infoPropertyList = PropertyList::read(info);
        layout.infoPropertyListURL = info;
    }
    const std::string name = executableName(layout);
    if (isPlainName(name) && isFolderOf(layout, executableFolder) && FileKind::leadsToFile(executableFolder / name)) {
        layout.executable = executableFolder / name;
    }
    if (!layout.infoPropertyListURL && !layout.executable) return std::nullopt;
    return layout;
}

std::optional<BundleLayout> versionedLayout(const FileURL& folder, const std::string& wantedVersion) {
    const FileURL versions = folder / "Versions";
    const std::string version = wantedVersion.empty() ? currentVersion(versions) : wantedVersion;
    const FileURL versionFolder = versions / version;
    if (!isPlainName(version) || !FileKind::isFolder(versions) || !FileKind::isFolder(versionFolder))
        return std::nullopt;
    return completed(
        {.kind = BundleLayout::Kind::versioned, .root = folder, .version = version, .resourceRoot = versionFolder},
        versionFolder / "Resources", versionFolder);
}

/// The folders whose bundle may have an executable at a place, the most likely first.
std::vector<std::pair<FileURL, std::string>> bundlesAround(const FileURL& executable) {
    const FileURL folder = executable.parent_path();
    const FileURL above = folder.parent_path();
    if (folder.filename() == "MacOS" && above.filename() == "Contents") return {{above.parent_path(), ""}};
    if (above.filename() == "Versions") return {{above.parent_path(), folder.filename()}, {folder, ""}};
    return {{folder, ""}};
}

} // namespace

std::optional<BundleLayout> BundleLayout::of(const FileURL& folder, const std::string& version) {
    if (!version.empty() || FileKind::leadsToFolder(folder / "Versions/Current"))
        return versionedLayout(folder, version);
    if (FileKind::isFolder(folder / "Contents")) {
        const FileURL contents = folder / "Contents";
        return completed({.kind = Kind::contents, .root = folder, .resourceRoot = contents}, contents,
                         contents / "MacOS");
    }
    const bool hasResources =
        FileKind::isFolder(folder / "Resources") && FileKind::leadsToFile(folder / "Resources/Info.plist");
    if (!hasResources && !FileKind::leadsToFile(folder / "Info.plist")) return std::nullopt;
    return completed({.kind = hasResources ? Kind::resources : Kind::flat, .root = folder, .resourceRoot = folder},
                     hasResources ? folder / "Resources" : folder, folder);
}

std::optional<BundleLayout> BundleLayout::whoseExecutableIs(const FileURL& file) {
    std::error_code error;
    const FileURL real = std::filesystem::canonical(file, error);
    if (error) return std::nullopt;
    for (const auto& [folder, version] : bundlesAround(real)) {
        auto layout = of(folder, version);
        if (layout && layout->executable == real) return layout;
    }
    return std::nullopt;
}

FileURL BundleLayout::sealedResourcesURL() const {
    const FileURL usual = signatureFolder() / "CodeResources";
    return FileKind::exists(usual) ? usual : resourceRoot / "CodeResources";
}

bool BundleLayout::isApplication() const {
    const PropertyList::Value* type = infoPropertyList.find("CFBundlePackageType");
    const auto* text = type != nullptr ? type->get<std::string>() : nullptr;
    return text != nullptr && *text == "APPL";
}

std::vector<std::string> BundleLayout::otherVersions() const {
    if (kind != Kind::versioned) return {};
    const FileURL versions = root / "Versions";
    std::vector<std::string> names;
    for (const std::string& name : FileKind::sortedNames(versions)) {
        if (name != "Current" && name != version && FileKind::isFolder(versions / name)) names.push_back(name);
    }
    return names;
}

} // namespace corvane
