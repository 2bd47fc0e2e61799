#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <string>

namespace corvane::Cpio {

/// The header of one file, folder or link.
struct Entry {
    /// "." for the root; else a checked relative path without "./" in front.
    std::string path;
    /// Type and permission bits, as in `st_mode`.
    mode_t mode = S_IFREG | 0644;
    std::uint32_t userID = 0;
    std::uint32_t groupID = 0;
    /// Number of links of a file; 2 and the number of children for a folder.
    std::uint32_t linkCount = 1;
    /// Together the identity of a file with several links.
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    /// Seconds since 1970.
    std::uint64_t modificationTime = 0;
    /// Bytes of data; 0 for folders and symbolic links.
    std::uint64_t size = 0;
    /// The text of a symbolic link.
    std::string linkTarget;

    bool isFile() const { return S_ISREG(mode); }
    bool isDirectory() const { return S_ISDIR(mode); }
    bool isSymbolicLink() const { return S_ISLNK(mode); }
};

} // namespace corvane::Cpio
