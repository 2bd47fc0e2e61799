#pragma once

#include "Platform/Formats/HfsPlus/VolumeHeader.hpp"
#include "Platform/Formats/RandomAccess.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace corvane::HfsPlus {

/// A file or folder as the catalog has it.
struct Item {
    std::uint32_t number = 0;
    /// Number of the folder that it is in.
    std::uint32_t parent = 0;
    /// In UTF-8, a stored "/" as ":". Not checked.
    std::string name;
    bool isFolder = false;
    /// Kind and permissions.
    std::uint16_t mode = 0;
    std::uint8_t ownerFlags = 0;
    std::uint32_t owner = 0;
    std::uint32_t group = 0;
    /// Number that a hard link gives its file.
    std::uint32_t special = 0;
    /// Seconds since 1970.
    std::int64_t modified = 0;
    /// 32 bytes: type and creator first.
    std::string finderInfo;
    ForkRecord data;
    ForkRecord resource;
};

/// All files and folders, hidden ones and hard links among them, as they stand in the catalog. @throws FormatError
std::vector<Item> readCatalog(const RandomAccess& file);

} // namespace corvane::HfsPlus
