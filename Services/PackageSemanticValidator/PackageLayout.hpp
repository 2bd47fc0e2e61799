#pragma once

#include "Services/PackageSemanticValidator.hpp"

#include <map>
#include <optional>

namespace corvane::PackageSemanticValidator {

/// Component folders by name.
using ComponentFolders = std::map<std::string, FileURL, Text::CanonicalOrder>;

/// The top level of an expanded package.
struct PackageLayout {
    NameSet topLevelNames;
    std::optional<FileURL> distribution;
    /// Only of a package with a Distribution.
    std::optional<FileURL> resources;
    /// A package without a Distribution is one component itself, "component.pkg".
    ComponentFolders components;
};

/// @throws PipelineError (`invalidInput`) when two entries have canonically the same name; FileError
PackageLayout packageLayout(const FileURL& root);

/// @param what the names are, for the error
/// @throws PipelineError (`invalidInput`) that lists both sides when they differ
void requireSameNames(const std::string& what, const NameSet& original, const NameSet& rebuilt);

/// The URL when a file, or a folder, stands there; links are followed.
std::optional<FileURL> existingFile(const FileURL& url);
std::optional<FileURL> existingDirectory(const FileURL& url);

} // namespace corvane::PackageSemanticValidator
