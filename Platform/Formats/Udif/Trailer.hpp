#pragma once

#include "Platform/Formats/RandomAccess.hpp"
#include "Platform/Formats/Udif/BlockTable.hpp"

#include <cstdint>
#include <optional>

namespace corvane::Udif {

/// A part of the file.
struct Extent {
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
};

/// The last 512 bytes of an image. Its parts lie within the file.
struct Trailer {
    Extent dataFork;
    Extent resourceFork;
    Extent propertyList;
    Extent codeSignature;
    std::uint32_t segmentCount = 0;
    Checksum dataChecksum;
    Checksum masterChecksum;
    std::uint64_t sectorCount = 0;

    /// Nothing when the file ends with something else. @throws FormatError, FileError
    static std::optional<Trailer> read(const RandomAccess& file);
};

/// The bytes of a part. @throws FormatError when they are more than `limit`
std::string readExtent(const RandomAccess& file, const Extent& extent, std::uint64_t limit);

} // namespace corvane::Udif
