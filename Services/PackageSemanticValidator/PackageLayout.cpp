#include "Services/PackageSemanticValidator/PackageLayout.hpp"

#include "Services/PackageSemanticValidator/Differences.hpp"
#include "Support/FileManager.hpp"
#include "Support/Text.hpp"

#include <algorithm>

namespace corvane::PackageSemanticValidator {

std::optional<FileURL> existingFile(const FileURL& url) {
    if (!FileManager::fileExists(url) || FileManager::isDirectory(url)) return std::nullopt;
    return url;
}

std::optional<FileURL> existingDirectory(const FileURL& url) {
    if (!FileManager::isDirectory(url)) return std::nullopt;
    return url;
}

void requireSameNames(const std::string& what, const NameSet& original, const NameSet& rebuilt) {
    const bool areSame =
        std::equal(original.begin(), original.end(), rebuilt.begin(), rebuilt.end(), &Text::canonicallyEqual);
    if (!areSame) throw mismatch(what, Text::joined(original, ", "), Text::joined(rebuilt, ", "));
}

PackageLayout packageLayout(const FileURL& root) {
    PackageLayout layout;
    const std::vector<FileURL> entries = FileManager::contentsOfDirectory(root);
    for (const FileURL& entry : entries) {
        // This file system may keep apart what is one name, and the second entry would be compared with nothing.
        const std::string name = lastPathComponent(entry);
        if (!layout.topLevelNames.insert(name).second) {
            throw PipelineError::invalidInput("Two entries of the package have the same name: " + name);
        }
    }
    layout.distribution = existingFile(root / "Distribution");
    if (!layout.distribution) {
        layout.components.emplace("component.pkg", root);
        return layout;
    }
    layout.resources = existingDirectory(root / "Resources");
    for (const FileURL& entry : entries) {
        if (pathExtension(entry) == "pkg" && S_ISDIR(FileManager::itemStatus(entry).st_mode)) {
            layout.components.emplace(lastPathComponent(entry), entry);
        }
    }
    return layout;
}

} // namespace corvane::PackageSemanticValidator
