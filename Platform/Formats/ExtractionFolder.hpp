#pragma once

#include "Platform/Formats/ByteSource.hpp"
#include "Support/FileURL.hpp"
#include "Support/UniqueDescriptor.hpp"

#include <cstdint>
#include <ctime>
#include <map>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace corvane {

/// What an archive says about a file or folder.
struct FileAttributes {
    /// Permission bits, 0 to 07777, set-id bits included.
    std::optional<std::uint32_t> mode;
    /// Since 1970.
    std::optional<struct timespec> modificationTime;
    /// Extended attributes by their names, kept as `ExtendedAttributes` keeps them.
    std::map<std::string, std::string> extended{};
};

/// True when a file system of `total` bytes, or files, keeps a twentieth of them free after `needed` of the `available`
/// ones.
bool keepsReserve(std::uint64_t total, std::uint64_t available, std::uint64_t needed);

/// Writes the entries of an archive below one folder. Paths are relative and are followed component by component from
/// the folder's descriptor, never through a link, so no entry lands elsewhere. Nothing that exists is replaced. Files
/// belong to the caller, whatever the archive says. Folders stay writable until `finish` gives them their modes and
/// times, which may close them to the caller. Folders that no entry names get 0755. Of the extended attributes of the
/// root itself, those are left out that the file system does not take: their companion would stand outside.
///
/// Writing stops with a FileError (ENOSPC) before the file system is full: a twentieth of its bytes stays free, and of
/// the files that it can hold.
/// All operations throw FileError, FormatError for a path that leaves the folder, and CancellationError.
class ExtractionFolder {
  public:
    /// @param root an existing folder; to be private when the archive may hold set-id files
    ExtractionFolder(FileURL root, std::stop_token stop);

    /// Creates a folder, or takes over one that an earlier path has implied; "." is the root itself.
    void addFolder(const std::string& path, const FileAttributes& attributes);
    /// Writes a file of exactly `size` bytes from the source, which is read to its end.
    void addFile(const std::string& path, const FileAttributes& attributes, std::uint64_t size, ByteSource& content);
    void addSymbolicLink(const std::string& path, const std::string& target, const FileAttributes& attributes);
    /// Another name for a file that was added before.
    void addHardLink(const std::string& path, const std::string& existing);
    /// Opens a file that was added before.
    UniqueDescriptor openFile(const std::string& path);
    /// Restores modes and times of folders. Called once, as the last operation.
    void finish();

  private:
    struct Place {
        int folder;
        std::string name;
    };

    Place place(const std::string& path);
    /// The place of something new that takes `size` bytes.
    Place newPlace(const std::string& path, std::uint64_t size = 0);
    UniqueDescriptor openFolder(const std::string& path, bool create);
    void setExtended(const std::string& path, const FileAttributes& attributes) const;
    void write(int descriptor, const FileURL& name, std::uint64_t size, ByteSource& content);
    void requireSpace(std::uint64_t size) const;
    FileURL url(const std::string& path) const { return root_ / path; }

    FileURL root_;
    std::stop_token stop_;
    UniqueDescriptor rootDescriptor_;
    /// The folder of the last entry: archives list a folder's entries together.
    std::string currentPath_;
    UniqueDescriptor current_;
    /// By path, a folder before what is in it.
    std::map<std::string, FileAttributes> folders_;
    std::vector<char> buffer_;
};

} // namespace corvane
