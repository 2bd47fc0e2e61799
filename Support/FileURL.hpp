#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace corvane {

/// A file-system path. All operations here are textual: none looks at the disk, but for the user database that a
/// leading tilde needs.
using FileURL = std::filesystem::path;

/// The last component, without trailing slashes; "/" for the root.
std::string lastPathComponent(const FileURL& url);

/// The text after the last dot of the last component; empty when there is no dot.
std::string pathExtension(const FileURL& url);

/// The path without its last component.
FileURL deletingLastPathComponent(const FileURL& url);

/// The path without the dot and extension of its last component.
FileURL deletingPathExtension(const FileURL& url);

/// The path with the extension of its last component replaced.
FileURL replacingPathExtension(const FileURL& url, std::string_view extension);

/// "~" and "~/..." become the current user's home folder, "~name/..." that user's; a path with an unknown user, or
/// without a leading tilde, comes back unchanged.
std::string expandingTilde(const std::string& path);

/// Drops empty and "." components; ".." removes the component before it and stops at the root.
FileURL standardized(const FileURL& url);

} // namespace corvane
