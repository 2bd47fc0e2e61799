#pragma once

#include "Support/FileError.hpp"
#include "Support/FileURL.hpp"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Operations on files and folders. Those that fail throw `FileError`; tests answer false instead.
namespace corvane::FileManager {

/// The folder for temporary files: the TMPDIR of the environment, else /tmp.
FileURL temporaryDirectory();

/// True when something stands at the path, links followed.
bool fileExists(const FileURL& url);

/// True when a folder stands at the path, links followed.
bool isDirectory(const FileURL& url);

/// Creates a folder and the folders above it that are missing. An existing folder is no error.
void createDirectory(const FileURL& url);

/// The same, and the folder itself is closed to other users (mode 0700).
void createPrivateDirectory(const FileURL& url);

/// The entries directly inside a folder, in the order in which the system lists them.
std::vector<FileURL> contentsOfDirectory(const FileURL& url);

/// Size of a regular file in bytes.
std::uint64_t fileSize(const FileURL& url);

/// The whole content of a file of at most `limit` bytes; a longer one is a `FileError` with EFBIG.
std::string readFile(const FileURL& url, std::uint64_t limit);

/// Removes a file, a link (not what it points to) or a folder with all that is in it, also where folders in it have
/// lost their write permission.
void removeItem(const FileURL& url);

/// Moves a file or folder. Between two file systems a file is copied beside the destination first, so the destination
/// appears whole or not at all.
void moveItem(const FileURL& source, const FileURL& destination);

/// Copies a regular file with its permissions and modification time; the destination appears whole or not at all.
void copyItem(const FileURL& source, const FileURL& destination);

} // namespace corvane::FileManager
