#pragma once

#include "Platform/Formats/HfsPlus/Attributes.hpp"
#include "Platform/Formats/HfsPlus/Fork.hpp"
#include "Platform/Formats/HfsPlus/Hierarchy.hpp"
#include "Platform/Formats/HfsPlus/VolumeHeader.hpp"
#include "Platform/Formats/RandomAccess.hpp"
#include "Platform/Formats/Volume/Volume.hpp"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace corvane::HfsPlus {

/// A volume of Mac OS Extended, journaled or not, with names that differ by case or not, bare or wrapped in one of the
/// older kind. Its journal is not replayed: images are made of volumes that were put away in order.
class Volume : public corvane::Volume {
  public:
    /// Whether a disk holds such a volume, whole or damaged.
    static bool isRecognized(const RandomAccess& disk) { return VolumeHeader::isRecognized(disk); }

    /// Reads all that is known of the files but their data.
    /// @param disk must outlive the volume
    /// @throws FormatError for anything that is not as it should be: blocks of two files, items without a folder, names
    /// that no file can have
    explicit Volume(const RandomAccess& disk);

    const std::string& name() const override { return name_; }
    const std::vector<VolumeEntry>& entries() const override { return entries_; }
    std::unique_ptr<ByteSource> open(const VolumeEntry& file) const override;
    std::map<std::string, std::string> attributes(const VolumeEntry& entry) const override;

  private:
    VolumeEntry entry(Hierarchy::Place place) const;
    bool isCompressed(const Item& item) const;
    std::unique_ptr<RandomAccess> fork(const Item& item, ForkKind kind) const;
    std::string linkTarget(const Item& item) const;
    void requireDistinctBlocks() const;

    VolumeHeader header_;
    PartAccess disk_;
    ForkTable forks_;
    Attributes attributes_;
    Hierarchy hierarchy_;
    std::string name_;
    std::vector<VolumeEntry> entries_;
};

} // namespace corvane::HfsPlus
