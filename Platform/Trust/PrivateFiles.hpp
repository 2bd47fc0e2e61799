#pragma once

#include "Support/FileURL.hpp"
#include "Support/UniqueDescriptor.hpp"

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

/// Files that a user's tools keep to themselves: folders of mode 0700, files of mode 0600.
namespace corvane::PrivateFiles {

/// Permissions that other users must not have.
constexpr mode_t readableByOthers = 077;
constexpr mode_t writableByOthers = 022;

/// The folder that an environment variable names, else the other one, which may begin with a tilde. A relative path in
/// the variable counts as none, by the convention of its kind. A user whose home nobody knows gets a folder that does
/// not exist, and not one of the working folder.
FileURL baseFolder(const char* variable, const std::string& otherwise);

/// Refuses a file or folder of another user, and one whose mode has forbidden permissions. @throws FileError,
/// FormatError
void requireClosed(const FileURL& url, mode_t forbidden);

/// The files of a folder with an extension, sorted; all of them and the folder must be closed. None when the folder is
/// missing. @throws FileError, FormatError
std::vector<FileURL> list(const FileURL& folder, std::string_view extension, mode_t forbidden);

/// Writes a file whole, and creates the folder that it is in. @throws FileError
void write(const FileURL& url, std::string_view content);

/// Waits until no other process holds the file "lock" of a folder, which must exist. The lock goes with the descriptor.
/// @throws FileError
UniqueDescriptor lock(const FileURL& folder);

} // namespace corvane::PrivateFiles
