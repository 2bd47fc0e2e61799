#pragma once

#include "Support/FileURL.hpp"
#include "Support/UniqueDescriptor.hpp"

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <stop_token>
#include <string>
#include <vector>

namespace corvane {

/// A folder with all that is in it, as one walk found it: what the archive, the Bom and the numbers of a payload have
/// in common. Contents of files are not read. A file "._NAME" that stands beside NAME is its companion, which carries
/// its extended attributes: it belongs to NAME and is nobody's child. Attributes that the file system itself keeps make
/// up such a companion, too.
class FolderTree {
  public:
    struct Entry {
        /// "." for the root; else a checked relative path without "./" in front.
        std::string path;
        /// The text of a symbolic link.
        std::string linkTarget;
        /// As on disk.
        mode_t mode = 0;
        std::uint64_t device = 0;
        std::uint64_t inode = 0;
        struct timespec modified {};
        /// Bytes of a file, or of a link's text; 0 for a folder.
        std::uint64_t size = 0;
        /// How many entries stand directly in a folder, companions left out.
        std::uint32_t childCount = 0;
        /// How many names of a file there are in the tree, and the place of the first among the entries.
        std::uint32_t nameCount = 1;
        std::size_t firstName = 0;
        bool isCompanion = false;
        /// For a companion, the place of what it accompanies.
        std::size_t owner = 0;
        /// For a companion that is no file, or not in the same form, its bytes.
        std::string content;

        bool isFile() const { return S_ISREG(mode); }
        bool isDirectory() const { return S_ISDIR(mode); }
        bool isSymbolicLink() const { return S_ISLNK(mode); }
    };

    /// Walks the folder. @throws FileError; FormatError for what is neither file, folder nor link, and for paths that
    /// are no good in an archive; CancellationError
    FolderTree(FileURL root, const std::stop_token& stop);

    const FileURL& root() const { return root_; }
    FileURL url(const Entry& entry) const { return root_ / entry.path; }
    /// Depth first from the root on, names sorted by their bytes, a folder before its content, a companion behind what
    /// it accompanies and all below that.
    const std::vector<Entry>& entries() const { return entries_; }

    /// Size of an entry as packages count it: a folder has 32 bytes for itself, its parent and each child.
    static std::uint64_t countedSize(const Entry& entry);
    /// Kilobytes that the tree takes when it is installed: every entry but the root and the companions in blocks of 512
    /// bytes, a file with several names once.
    std::uint64_t installKBytes() const;

    /// Opens a file, not one with `content`, that is still the one that the walk saw. @throws FileError; FormatError
    /// when it is not
    UniqueDescriptor openFile(const Entry& entry) const;
    /// @throws FormatError when an open file has changed since the walk
    void requireUnchanged(const Entry& entry, const UniqueDescriptor& file) const;
    /// @throws FormatError when a folder has got, lost or renamed entries since the walk
    void requireUnchangedFolders() const;

  private:
    struct Walk;
    void requireSame(const Entry& entry, const struct stat& status) const;

    FileURL root_;
    std::vector<Entry> entries_;
};

} // namespace corvane
