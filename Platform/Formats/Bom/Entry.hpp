#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace corvane::Bom {

enum class EntryType : std::uint8_t { file = 1, directory = 2, symbolicLink = 3, device = 4 };

/// One architecture of a Mach-O file. A thin file has one, of the file's own size and checksum.
struct Architecture {
    std::uint32_t cpuType = 0;
    std::uint32_t cpuSubtype = 0;
    /// Bytes of the slice, modulo 4 GiB.
    std::uint32_t size = 0;
    /// POSIX checksum of the slice.
    std::uint32_t checksum = 0;

    bool operator==(const Architecture&) const = default;
};

/// What a Bom says about one path.
struct Entry {
    /// "." for the root; else a checked relative path without "./" in front.
    std::string path;
    EntryType type = EntryType::file;
    /// Type and permission bits, as in `st_mode`.
    std::uint16_t mode = 0;
    std::uint32_t userID = 0;
    std::uint32_t groupID = 0;
    /// Seconds since 1970.
    std::uint32_t modificationTime = 0;
    /// Bytes of a file; length of a symbolic link's target; 32 x (children + 2) for a directory, companions not
    /// counted.
    std::uint64_t size = 0;
    /// POSIX checksum of a file, or of a symbolic link's target; 0 for a directory; the number of a device.
    std::uint32_t checksum = 0;
    /// The text of a symbolic link.
    std::string linkTarget;
    /// A "._NAME" that carries the attributes of NAME beside it: a file with NAME's mode, all other numbers 0.
    bool isCompanion = false;
    /// Of a Mach-O file, in the file's order.
    std::vector<Architecture> architectures;

    bool operator==(const Entry&) const = default;
};

} // namespace corvane::Bom
