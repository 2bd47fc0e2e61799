#pragma once

#include "Support/FileError.hpp"
#include "Support/FileURL.hpp"

#include <sys/stat.h>

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

/// What the system knows of the item at the path itself: a link is not followed.
struct stat itemStatus(const FileURL& url);

/// The text of a symbolic link.
std::string linkTarget(const FileURL& url);

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

/// True when two regular files hold the same bytes. Needs no more memory for large files.
bool haveSameContent(const FileURL& left, const FileURL& right);

/// Writes a file over what stands at the path, which stays half-written when that fails.
void writeFile(const FileURL& url, std::string_view content);

/// Writes a file that appears whole or not at all and replaces what stands at the path.
void writeFileAtomically(const FileURL& url, std::string_view content);

/// Removes a file, a link (not what it points to) or a folder with all that is in it, also where folders in it have
/// lost their write permission.
void removeItem(const FileURL& url);

/// Moves a file or folder. Between two file systems a file is copied beside the destination first, so the destination
/// appears whole or not at all.
void moveItem(const FileURL& source, const FileURL& destination);

/// Copies a regular file with its permissions and modification time; the destination appears whole or not at all.
void copyItem(const FileURL& source, const FileURL& destination);

} // namespace corvane::FileManager
