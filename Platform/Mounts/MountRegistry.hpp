#pragma once

#include "Platform/Formats/DiskImage/MountableVolume.hpp"
#include "Platform/Mounts/FolderIdentity.hpp"
#include "Support/FileURL.hpp"

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace corvane {

/// An attached disk image: its tree stands in a folder.
struct MountRecord {
    /// N of "/dev/diskN", the name of the record.
    unsigned device = 0;
    /// Absolute, links resolved.
    FileURL imagePath;
    FileURL mountPoint;
    /// What the mount point is while the image is attached; another folder there is not ours.
    FolderIdentity folder;
    /// The attach made the folder, so the detach removes it.
    bool ownsFolder = false;
    /// Permissions that the folder had before, and has again after.
    mode_t folderMode = 0700;
    /// "UDIF read-only compressed (zlib)"
    std::string imageKind;
    bool isEncrypted = false;
    /// In blocks of 512 bytes.
    std::uint64_t blockCount = 0;
    std::vector<DiskEntity> entities;

    /// How many devices the record has, from its own on: a container makes up a disk besides the image's.
    unsigned deviceCount() const;
    bool operator==(const MountRecord&) const = default;
};

/// The images that this user has attached, as a system's kernel would know them. One file a record, "diskN.plist", in
/// a folder closed to other users (0700, files 0600), each written whole, all changes under one lock.
class MountRegistry {
  public:
    explicit MountRegistry(FileURL folder) : folder_(std::move(folder)) {}
    /// ${XDG_STATE_HOME:-~/.local/state}/corvane/mounts
    static MountRegistry ofUser();

    /// Those whose folder still stands, by device. Records of folders that are gone or others now are dropped, and
    /// damaged ones are passed over.
    /// @throws FileError; FormatError when other users can write to the registry
    std::vector<MountRecord> mounts() const;
    /// Gives a record the lowest free devices from 4 on and keeps it.
    /// @param place makes the folder of the record stand, while the registry is locked and the record is written: if it
    ///        throws, the record is gone
    /// @throws as above, and what `place` throws
    MountRecord add(MountRecord record, const std::function<void()>& place) const;
    /// Drops a record; nothing happens when it has been dropped by another.
    /// @param clear does away with the folder, while the registry is locked: if it throws, the record stays
    /// @throws as above, and what `clear` throws
    void remove(const MountRecord& record, const std::function<void()>& clear) const;

  private:
    std::vector<MountRecord> liveMounts() const;
    FileURL file(const MountRecord& record) const;

    FileURL folder_;
};

} // namespace corvane
