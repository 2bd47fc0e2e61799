#pragma once

#include "Platform/Formats/ByteSource.hpp"

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace corvane {

/// One item of a volume, as a Unix program of the system that made it sees it.
struct VolumeEntry {
    /// From the root on, "Folder/file"; "." for the root. In UTF-8 as the volume has it, checked as a path below a
    /// folder.
    std::string path;
    /// Kind and permissions.
    mode_t mode = 0;
    std::uint32_t owner = 0;
    std::uint32_t group = 0;
    struct timespec modified {};
    /// Bytes of a file's plain data, or of a link's text.
    std::uint64_t size = 0;
    /// The text of a symbolic link.
    std::string linkTarget;
    /// Of the item on the volume: the same for all names of one file.
    std::uint64_t number = 0;
    /// Where the bytes of a file begin on the disk: files that are read in this order are read front to back. 0 when it
    /// has none of its own.
    std::uint64_t position = 0;
};

/// Most entries of one volume, and bytes of all their paths and of the texts of links: links to folders, and folders
/// with long names, multiply what little a volume says.
constexpr std::size_t volumeEntryLimit = 4'000'000;
constexpr std::uint64_t volumeTextLimit = std::uint64_t{256} << 20;
/// Most bytes of all extended attributes of one item: they are in memory together.
constexpr std::uint64_t volumeAttributeLimit = std::uint64_t{64} << 20;
/// Attributes with such names, access control lists among them, belong to the system and are left out.
constexpr const char* systemAttributePrefix = "com.apple.system.";

/// A file system that is read without the help of a kernel. What the system that made it hides is left out: private
/// folders, and the stored form of compressed files, which appear as their plain data. Threads may read side by side.
class Volume {
  public:
    Volume() = default;
    Volume(const Volume&) = delete;
    Volume& operator=(const Volume&) = delete;
    virtual ~Volume() = default;

    virtual const std::string& name() const = 0;
    /// Every folder before what is in it, the root first; names in one folder sorted by their bytes.
    virtual const std::vector<VolumeEntry>& entries() const = 0;
    /// The plain data of a file. The volume must outlive the source.
    /// @throws FormatError, also while it is read
    virtual std::unique_ptr<ByteSource> open(const VolumeEntry& file) const = 0;
    /// The extended attributes by their names, Finder information and resource fork among them. @throws FormatError
    virtual std::map<std::string, std::string> attributes(const VolumeEntry& entry) const = 0;
};

} // namespace corvane
