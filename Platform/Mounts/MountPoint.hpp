#pragma once

#include "Platform/Mounts/FolderIdentity.hpp"
#include "Support/FileURL.hpp"

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace corvane {

/// The empty folder that a volume takes the place of. What was made for it goes again with the owner, unless it was
/// filled. All operations throw `FileError`.
class MountPoint {
  public:
    /// An empty folder that no attached image uses (ENOTDIR, ENOTEMPTY, EBUSY), or one to be made in a folder that
    /// exists.
    static MountPoint at(const FileURL& url);
    /// A new folder below ${XDG_STATE_HOME:-~/.local/state}/corvane/volumes, with the volume's name, or a number behind
    /// it where that is taken.
    static MountPoint ofUser(std::string_view volumeName);
    MountPoint(MountPoint&& other) noexcept;
    MountPoint& operator=(MountPoint&&) = delete;
    ~MountPoint();

    /// Absolute, links resolved.
    const FileURL& url() const { return url_; }
    /// Whether it was made for the volume.
    bool isOwn() const { return isOwn_; }
    mode_t mode() const { return mode_; }
    /// @throws FileError when another folder stands there by now
    void requireUnchanged() const;

  private:
    MountPoint(FileURL url, bool isOwn);
    bool isUnchanged() const;

    FileURL url_;
    bool isOwn_;
    FolderIdentity folder_;
    mode_t mode_ = 0;
};

/// The name of a volume as that of a file of at most `limit` bytes.
std::string volumeFileName(std::string_view volumeName, std::size_t limit);

} // namespace corvane
