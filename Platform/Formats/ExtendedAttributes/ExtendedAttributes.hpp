#pragma once

#include "Platform/Formats/ExtendedAttributes/AppleDouble.hpp"
#include "Support/FileURL.hpp"

#include <map>
#include <optional>
#include <string>
#include <vector>

/// The extended attributes of files as a Mac has them, on systems that have no such place for them. An attribute
/// "com.apple.quarantine" is kept as "user.com.apple.quarantine" where the file system takes it. What it does not take
/// (it is too large, the item is a link, there are no attributes at all) stands in the item's companion, an AppleDouble
/// file "._NAME" beside NAME, as archives and foreign disks have it. Where both have an attribute, the file system's
/// counts. This is the one store that all tools share. Links are not followed. A file "._NAME" that is no AppleDouble
/// file is an ordinary one and never replaced.
///
/// Finder information of zeros only is none, and so is a resource fork that is empty or says that it was left blank.
/// Two processes that change attributes of one item at the same time may lose one of the changes.
namespace corvane::ExtendedAttributes {

constexpr const char* quarantine = "com.apple.quarantine";

/// Largest value that is kept, in bytes.
constexpr std::size_t valueLimit = std::size_t{64} << 20;

/// Names without "user.", sorted; those of the system's other name spaces are left out. @throws FileError, FormatError
std::vector<std::string> names(const FileURL& item);
/// @throws FileError, FormatError
std::optional<std::string> value(const FileURL& item, const std::string& name);
/// Replaces what the item has under the name; a value that says nothing removes it. Names have 1 to 127 bytes, values
/// at most `valueLimit`, Finder information exactly 32. @throws FileError, FormatError
void set(const FileURL& item, const std::string& name, const std::string& value);
/// Replaces several at once. @throws likewise
void set(const FileURL& item, const std::map<std::string, std::string>& attributes);
/// False when the item has no such attribute. A companion that holds nothing any more is removed.
/// @throws FileError, FormatError
bool remove(const FileURL& item, const std::string& name);

/// Copies what the file system itself keeps of one open item's attributes to another, without a look at companions.
/// The names are for messages. Returns what the other's file system does not take: `keepBeside` is for that.
/// @throws FileError
std::map<std::string, std::string> copyWithinFileSystem(int source, const FileURL& sourceName, int destination,
                                                        const FileURL& destinationName);
/// Adds attributes to an item's companion, whatever the file system would take. @throws FileError, FormatError
void keepBeside(const FileURL& item, const std::map<std::string, std::string>& attributes);

/// The content that an item's companion would have on a file system without attributes. Nothing when this one keeps
/// none of the item's: then the companion, if there is one, has them all. @throws FileError, FormatError
std::optional<std::string> wholeCompanion(const FileURL& item);

/// Where the companion of an item is or would be. Empty for an item that can have none: the root, and a name that is
/// itself that of a companion. @throws FileError for "." and ".." that are not there
FileURL companion(const FileURL& item);
/// Whether a file is the companion of another: "._NAME" beside NAME, and an AppleDouble file.
/// @throws FileError
bool isCompanion(const FileURL& file);

} // namespace corvane::ExtendedAttributes
