#pragma once

#include "Platform/Formats/Xar/NewEntry.hpp"
#include "Support/FileURL.hpp"

#include <stop_token>
#include <vector>

namespace corvane::Tools {

/// Makes a flat package of an expanded one: the inverse of `expandPackage`. Folders named Scripts, of the product and
/// of each component, become archives; everything else goes in as it lies. Nothing is recomputed. The package states
/// no times but those of scripts, where times later than the environment's source date are set to that; so the same
/// content gives the same bytes.
/// @throws FileError, FormatError, CancellationError
void flattenPackage(const FileURL& folder, const FileURL& package, const std::stop_token& stop);

/// What is in a folder as entries of an archive, compressed, sorted by name; no name has a meaning of its own.
/// @throws FileError, FormatError, CancellationError
std::vector<Xar::NewEntry> folderEntries(const FileURL& folder, const std::stop_token& stop);

} // namespace corvane::Tools
