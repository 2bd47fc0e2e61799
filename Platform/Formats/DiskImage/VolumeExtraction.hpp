#pragma once

#include "Platform/Formats/Volume/Volume.hpp"
#include "Support/FileURL.hpp"

#include <stop_token>

namespace corvane {

/// Writes the whole tree of a volume into a folder: bytes, modes with set-id bits, times, links, hard links and names
/// exactly, extended attributes through `ExtendedAttributes`. Files belong to the caller. Files are written in the
/// order of their places on the disk, by several threads, links after them, modes and times of folders last. The folder
/// itself gets the attributes of the volume's root.
/// @param folder exists, is empty, and nobody else's; half-filled when this fails
/// @throws FormatError, FileError, CancellationError
void extractVolume(const Volume& volume, const FileURL& folder, const std::stop_token& stop);

} // namespace corvane
