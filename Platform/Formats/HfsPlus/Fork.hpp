#pragma once

#include "Platform/Formats/HfsPlus/VolumeHeader.hpp"
#include "Platform/Formats/RandomAccess.hpp"

#include <cstdint>
#include <map>
#include <memory>
#include <tuple>
#include <vector>

namespace corvane::HfsPlus {

enum class ForkKind : std::uint8_t { data = 0, resource = 0xFF };

/// Where the bytes of a fork stand.
struct Fork {
    std::uint64_t size = 0;
    std::vector<Extent> extents;
};

/// Appends the extents of a record up to the first unused one, and returns how many blocks they have.
/// @param limit blocks of the volume
/// @throws FormatError when an extent passes the volume's end
std::uint64_t appendExtents(std::vector<Extent>& extents, const ExtentRecord& record, std::uint32_t limit);

/// Finds all extents of forks. For many threads, once it is made.
class ForkTable {
  public:
    /// Reads the file of those extents that have no room in their file's own record. @throws FormatError
    /// @param disk begins with the volume; must outlive this and all forks
    ForkTable(const RandomAccess& disk, const VolumeHeader& header);

    /// @param file its number, for the extents beyond the record
    /// @throws FormatError when blocks are missing, too many, or beyond the volume's end
    Fork find(const ForkRecord& record, std::uint32_t file, ForkKind kind) const;
    /// A fork whose extents were all found elsewhere. @throws FormatError
    Fork checked(std::uint64_t size, std::vector<Extent> extents) const;
    std::unique_ptr<RandomAccess> open(Fork fork) const;
    std::uint32_t volumeBlocks() const { return volumeBlocks_; }

  private:
    const RandomAccess& disk_;
    std::uint32_t blockSize_;
    std::uint32_t volumeBlocks_;
    /// By file, kind of fork, and first block within the fork.
    std::map<std::tuple<std::uint32_t, std::uint8_t, std::uint32_t>, ExtentRecord> more_;
};

} // namespace corvane::HfsPlus
