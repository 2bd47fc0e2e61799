#pragma once

#include "Support/FileURL.hpp"

#include <stop_token>

namespace corvane {

/// Copies a file, or what is in a folder, as a Mac's user would see it: bytes, modes with set-id bits, nanosecond
/// times, links as links, hard links among what is copied, extended attributes in the file system and in companions.
/// For root the owners stay, otherwise the copies are the caller's.
///
/// A folder's content is merged into the destination, which is made when it is missing, with the folders above it. What
/// stands there and not in the source stays; files and links are replaced, each whole or not at all, and folders that
/// exist keep their attributes. Folders never replace anything else, nor are they replaced. A file goes into the
/// destination when that is a folder, or ends in a slash, else it takes its place. Links are followed where the source
/// and the destination folder are named, and nowhere below.
///
/// When this fails, nothing is left of a destination that was not there before; what was merged into an existing one
/// stays.
/// @throws FileError; FormatError for paths that are too long or too deep; CancellationError; std::runtime_error for a
/// device, pipe or socket, and when source and destination lie in each other
void copyTree(const FileURL& source, const FileURL& destination, const std::stop_token& stop);

} // namespace corvane
