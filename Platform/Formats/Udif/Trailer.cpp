#include "Platform/Formats/Udif/Trailer.hpp"

#include "Platform/Formats/ByteCursor.hpp"
#include "Platform/Formats/FormatError.hpp"

namespace corvane::Udif {
namespace {

constexpr std::size_t trailerSize = 512;

/// Where the fields that are read apart from the others stand.
constexpr std::size_t dataChecksumAt = 80;
constexpr std::size_t propertyListAt = 216;
constexpr std::size_t codeSignatureAt = 296;
constexpr std::size_t masterChecksumAt = 352;
constexpr std::size_t sectorCountAt = 492;

Extent extent(ByteCursor& cursor, std::uint64_t fileSize) {
    const Extent found{cursor.u64BigEndian(), cursor.u64BigEndian()};
    if (found.length != 0 && (found.offset > fileSize || found.length > fileSize - found.offset)) {
        cursor.fail("expected a part within the " + std::to_string(fileSize) + " bytes of the file, found " +
                    std::to_string(found.length) + " bytes at " + std::to_string(found.offset));
    }
    return found;
}

} // namespace

std::optional<Trailer> Trailer::read(const RandomAccess& file) {
    if (file.size() < trailerSize) return std::nullopt;
    const std::uint64_t start = file.size() - trailerSize;
    const std::string bytes = readExtent(file, {start, trailerSize}, trailerSize);
    if (!bytes.starts_with("koly")) return std::nullopt;
    const auto at = [&](std::size_t offset) {
        return ByteCursor(std::string_view(bytes).substr(offset), "disk image trailer", start + offset);
    };
    ByteCursor cursor = at(4);
    const std::uint32_t version = cursor.u32BigEndian();
    const std::uint32_t size = cursor.u32BigEndian();
    if (version != 4 || size != trailerSize) cursor.fail("expected version 4 and 512 bytes, found others");
    cursor.skip(4 + 8); // flags, the place of this segment in all
    Trailer trailer;
    trailer.dataFork = extent(cursor, file.size());
    trailer.resourceFork = extent(cursor, file.size());
    cursor.skip(4); // the number of this segment
    trailer.segmentCount = cursor.u32BigEndian();
    trailer.dataChecksum = Checksum::read(std::string_view(bytes).substr(dataChecksumAt, Checksum::size));
    trailer.masterChecksum = Checksum::read(std::string_view(bytes).substr(masterChecksumAt, Checksum::size));
    cursor = at(propertyListAt);
    trailer.propertyList = extent(cursor, file.size());
    cursor = at(codeSignatureAt);
    trailer.codeSignature = extent(cursor, file.size());
    trailer.sectorCount = at(sectorCountAt).u64BigEndian();
    return trailer;
}

std::string readExtent(const RandomAccess& file, const Extent& extent, std::uint64_t limit) {
    if (extent.length > limit) {
        throw FormatError("disk image", extent.offset,
                          "expected a part of at most " + std::to_string(limit) + " bytes, found " +
                              std::to_string(extent.length));
    }
    std::string bytes(extent.length, '\0');
    file.read(extent.offset, bytes);
    return bytes;
}

} // namespace corvane::Udif
