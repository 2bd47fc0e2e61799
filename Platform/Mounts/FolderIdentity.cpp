#include "Platform/Mounts/FolderIdentity.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>

namespace corvane {
namespace {

std::optional<FolderIdentity> identity(int descriptor, const char* path, int flags) {
    struct statx status {};
    if (::statx(descriptor, path, flags, STATX_TYPE | STATX_INO | STATX_BTIME, &status) != 0) return std::nullopt;
    if (!S_ISDIR(status.stx_mode)) {
        errno = ENOTDIR;
        return std::nullopt;
    }
    FolderIdentity found{.device = ::makedev(status.stx_dev_major, status.stx_dev_minor), .number = status.stx_ino};
    if ((status.stx_mask & STATX_BTIME) != 0) {
        found.birth = static_cast<std::uint64_t>(status.stx_btime.tv_sec) * 1'000'000'000 + status.stx_btime.tv_nsec;
    }
    return found;
}

} // namespace

std::optional<FolderIdentity> FolderIdentity::of(const FileURL& url) {
    return identity(AT_FDCWD, url.c_str(), AT_SYMLINK_NOFOLLOW);
}

std::optional<FolderIdentity> FolderIdentity::of(int descriptor) { return identity(descriptor, "", AT_EMPTY_PATH); }

} // namespace corvane
