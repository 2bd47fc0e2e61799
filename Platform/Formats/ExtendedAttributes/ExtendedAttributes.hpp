#pragma once

#include "Support/FileURL.hpp"

#include <optional>
#include <string>
#include <vector>

/// The extended attributes of files as a Mac has them, on systems that have no such place for them. An attribute
/// "com.apple.quarantine" is kept as "user.com.apple.quarantine" where the file system takes it. What it does not take
/// (it is too large, the item is a link, there are no attributes at all) stands in the item's companion, an AppleDouble
/// file "._NAME" beside NAME, as archives and foreign disks have it. Where both have an attribute, the file system's
/// counts. This is the one store that all tools share. Links are not followed.
///
/// Finder information of zeros only is none, and so is a resource fork that says that it was left blank.
namespace corvane::ExtendedAttributes {

constexpr const char* finderInfo = "com.apple.FinderInfo";
constexpr const char* resourceFork = "com.apple.ResourceFork";
constexpr const char* quarantine = "com.apple.quarantine";

/// Names without "user.", sorted; those of the system's other name spaces are left out. @throws FileError, FormatError
std::vector<std::string> names(const FileURL& item);
/// @throws FileError, FormatError
std::optional<std::string> value(const FileURL& item, const std::string& name);
/// Replaces what the item has under the name. @throws FileError, FormatError
void set(const FileURL& item, const std::string& name, const std::string& value);
/// False when the item has no such attribute. A companion that holds nothing any more is removed.
/// @throws FileError, FormatError
bool remove(const FileURL& item, const std::string& name);

/// Where the companion of an item is or would be.
FileURL companion(const FileURL& item);
/// Whether a file is the companion of another: "._NAME" beside NAME, and an AppleDouble file.
bool isCompanion(const FileURL& file);

} // namespace corvane::ExtendedAttributes
