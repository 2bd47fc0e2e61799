#pragma once

#include "Support/FileURL.hpp"

#include <map>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

/// Files and folders: scripts, payloads, resources and bills of materials. The runs of tools end on a stop.
namespace corvane::PackageSemanticValidator {

/// Compares two folders, each of which may be absent: every file's bytes, and every entry's type, permissions and link
/// target.
/// @param label what the folders are, for the error
/// @throws PipelineError (`invalidInput`) that shows the difference; FileError, LaunchError, CancellationError
void compareOptionalDirectory(const std::optional<FileURL>& original, const std::optional<FileURL>& rebuilt,
                              const std::string& label, const std::stop_token& stop);

/// For every entry below a folder, hidden ones too and none through a link, its path from there and a text such as
/// "file:644", "directory:755" or "link:777:Versions/A". What cannot be listed ends the map early.
/// @throws FileError for an entry whose attributes cannot be read
std::map<std::string, std::string> treeMetadata(const FileURL& root);

/// Compares two bills of materials byte by byte; neither file needs to exist.
/// @throws PipelineError (`invalidInput`) that shows the difference, (`toolFailed`) when one cannot be listed for that;
///         FileError, LaunchError, CancellationError
void compareBOM(const FileURL& original, const FileURL& rebuilt, const std::string& componentName,
                const std::stop_token& stop);

/// The sorted lines of a bill's listing, without companion files ("._NAME").
/// @throws PipelineError (`toolFailed`), LaunchError, CancellationError
std::vector<std::string> normalizedBOM(const FileURL& bom, const std::stop_token& stop);

} // namespace corvane::PackageSemanticValidator
