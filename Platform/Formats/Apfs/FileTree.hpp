#pragma once

#include "Platform/Formats/Apfs/Container.hpp"

#include <sys/types.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace corvane::Apfs {

struct Inode {
    std::uint64_t number = 0;
    /// Number that the extents of its data stand under.
    std::uint64_t stream = 0;
    /// Bytes of its data as stored.
    std::uint64_t size = 0;
    /// Nanoseconds since 1970.
    std::int64_t modified = 0;
    std::uint32_t flags = 0;
    std::uint32_t owner = 0;
    std::uint32_t group = 0;
    mode_t mode = 0;
};

/// The name of an inode in a folder.
struct DirectoryEntry {
    std::uint64_t folder = 0;
    std::uint64_t inode = 0;
    std::string name;
};

/// Bytes of a stream that stand in a row, in whole blocks.
struct Extent {
    std::uint64_t stream = 0;
    /// In the stream, in bytes.
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
    /// On the disk, in bytes; 0 for a hole.
    std::uint64_t place = 0;
};

/// An extended attribute. Its value stays on the disk until it is asked for.
struct Attribute {
    std::uint64_t inode = 0;
    std::string name;
    std::uint64_t size = 0;
    /// Where an embedded value stands on the disk, in bytes.
    std::uint64_t place = 0;
    /// The number that the extents of another value stand under; 0 for an embedded one.
    std::uint64_t stream = 0;
};

/// The records of a volume's file tree.
class FileTree {
  public:
    /// Reads them all. @throws FormatError
    FileTree(const ObjectReader& objects, const VolumeState& volume);

    /// Sorted by number, each once.
    const std::vector<Inode>& inodes() const { return inodes_; }
    /// Sorted by folder and bytes of the name, each once.
    const std::vector<DirectoryEntry>& directoryEntries() const { return directoryEntries_; }
    /// Null when there is none.
    const Inode* inode(std::uint64_t number) const;
    std::span<const DirectoryEntry> entriesOf(std::uint64_t folder) const;
    /// Sorted by their offsets; none overlap and none passes the end of the disk.
    std::span<const Extent> extentsOf(std::uint64_t stream) const;
    std::span<const Attribute> attributesOf(std::uint64_t inode) const;

  private:
    std::vector<Inode> inodes_;
    std::vector<DirectoryEntry> directoryEntries_;
    std::vector<Extent> extents_;
    std::vector<Attribute> attributes_;
};

} // namespace corvane::Apfs
