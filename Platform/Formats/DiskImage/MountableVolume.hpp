#pragma once

#include "Platform/Formats/RandomAccess.hpp"
#include "Platform/Formats/Volume/Volume.hpp"

#include <memory>
#include <string>
#include <vector>

namespace corvane {

/// A piece of a disk that a system gives a device of its own.
struct DiskEntity {
    /// "GUID_partition_scheme", "48465300-0000-11AA-AA11-00306543ECAC", "Apple_HFS"
    std::string contentHint;
    /// 0 for the image's own disk, 1 for the disk that the container on it makes up.
    unsigned disk = 0;
    /// Counted from 1; 0 for the whole disk.
    unsigned slice = 0;
    bool isMounted = false;

    bool operator==(const DiskEntity&) const = default;
};

/// The volume of a disk that is mounted where only one can be: the first of a kind that is known, in the order of the
/// partition map.
class MountableVolume {
  public:
    /// @param disk must outlive this
    /// @throws FormatError for damage, and naming the kind of what is there when none is supported
    explicit MountableVolume(const RandomAccess& disk);

    const Volume& volume() const { return *volume_; }
    /// All pieces of the disk, in the order in which a system lists them. One of them is mounted.
    const std::vector<DiskEntity>& entities() const { return entities_; }

  private:
    std::unique_ptr<RandomAccess> part_;
    std::unique_ptr<Volume> volume_;
    std::vector<DiskEntity> entities_;
};

} // namespace corvane
