#pragma once

#include "Platform/Mounts/FolderIdentity.hpp"
#include "Support/FileURL.hpp"

namespace corvane {

/// Removes what is in a folder, whatever modes it and the folders in it have; the folder itself stays. Goes from
/// descriptor to descriptor: links are not followed, and other file systems that are mounted below are left alone. The
/// system's number of open files bounds the depth.
/// @param folder which folder must stand at the path; another one is left alone (ENOENT)
/// @param passesOver goes on when something cannot be removed
/// @throws FileError
void clearFolder(const FileURL& url, const FolderIdentity& folder, bool passesOver);

} // namespace corvane
