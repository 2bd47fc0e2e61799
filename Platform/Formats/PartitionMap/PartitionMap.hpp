#pragma once

#include "Platform/Formats/RandomAccess.hpp"

#include <cstdint>
#include <string>
#include <vector>

/// Where the volumes of a disk lie.
namespace corvane::PartitionMap {

enum class Scheme { none, guid, apple };

/// "GUID_partition_scheme", "Apple_partition_scheme"; empty for none.
std::string_view schemeName(Scheme scheme);

struct Part {
    /// Both in bytes, within the disk.
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
    /// "48465300-0000-11AA-AA11-00306543ECAC", "Apple_HFS"; empty for a volume that fills the disk.
    std::string type;
    std::string name;
};

struct Map {
    Scheme scheme = Scheme::none;
    /// In the order of the map, those of no sectors left out.
    std::vector<Part> parts;
};

/// A disk without a map that is known is one volume. Sectors have 512 bytes.
/// @throws FormatError for too many parts, and parts that pass the disk's end; what the disk throws
Map read(const RandomAccess& disk);

} // namespace corvane::PartitionMap
