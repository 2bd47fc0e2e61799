#pragma once

#include "Platform/Formats/Apfs/FileTree.hpp"
#include "Platform/Formats/RandomAccess.hpp"
#include "Platform/Formats/Volume/Volume.hpp"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace corvane::Apfs {

/// The first volume of a container that is no part of a system. Its whole file tree is held in memory, at most a few
/// hundred bytes a file; the data stays on the disk.
class Volume : public corvane::Volume {
  public:
    /// Whether a disk holds a container, whole or damaged.
    static bool isRecognized(const RandomAccess& disk);

    /// @param disk the container, from its first block on; must outlive this
    /// @throws FormatError, also for encrypted and sealed volumes and Fusion drives, by these names
    explicit Volume(const RandomAccess& disk);

    const std::string& name() const override { return state_.name; }
    const std::vector<VolumeEntry>& entries() const override { return entries_; }
    std::unique_ptr<ByteSource> open(const VolumeEntry& file) const override;
    std::map<std::string, std::string> attributes(const VolumeEntry& entry) const override;

  private:
    const Inode& inode(const VolumeEntry& entry) const;
    /// Null when there is none.
    const Attribute* attribute(const Inode& inode, std::string_view name) const;
    /// What says how a file is compressed; null for other files.
    const Attribute* compression(const Inode& inode) const;
    std::unique_ptr<RandomAccess> content(const Attribute& attribute) const;
    std::string value(const Attribute& attribute) const;
    /// At most so many bytes of a value.
    std::string front(const Attribute& attribute, std::uint64_t limit) const;
    std::uint64_t position(const Inode& inode) const;
    std::string linkTarget(const std::string& path, const Inode& inode) const;
    VolumeEntry entry(std::string path, const Inode& inode) const;

    const RandomAccess& disk_;
    ObjectReader objects_;
    VolumeState state_;
    FileTree tree_;
    std::vector<VolumeEntry> entries_;
};

} // namespace corvane::Apfs
