#include "Platform/Mounts/FolderClearing.hpp"

#include "Support/FileError.hpp"
#include "Support/UniqueDescriptor.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace corvane {
namespace {

/// The folder as a place, which needs no permission of its own.
UniqueDescriptor openPlace(int parent, const char* name) {
    return UniqueDescriptor(::openat(parent, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

class Clearing {
  public:
    Clearing(dev_t device, bool passesOver) : device_(device), passesOver_(passesOver) {}

    /// Keeps one descriptor open for each level: trees may be deeper than half of what a process may open.
    void clear(UniqueDescriptor place, const struct stat& status, const FileURL& url) const {
        // Such a descriptor takes no change of mode, but its name among the process's files does.
        ::chmod(("/proc/self/fd/" + std::to_string(place.get())).c_str(), (status.st_mode & 07777U) | S_IRWXU);
        const UniqueDescriptor folder(::openat(place.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        place.reset();
        for (const std::string& name : names(folder, url)) remove(folder.get(), name.c_str(), url / name);
    }

  private:
    void fail(const FileURL& url, int reason) const {
        if (!passesOver_) throw FileError("Cannot remove", url, {reason, std::generic_category()});
    }

    /// All at once: a listing does not survive the removal of what it lists on every file system.
    std::vector<std::string> names(const UniqueDescriptor& folder, const FileURL& url) const {
        struct Close {
            void operator()(DIR* open) const { ::closedir(open); }
        };
        std::vector<std::string> found;
        const int copy = ::fcntl(folder.get(), F_DUPFD_CLOEXEC, 0);
        const std::unique_ptr<DIR, Close> listing(::fdopendir(copy));
        if (!listing) {
            fail(url, errno);
            if (copy >= 0) ::close(copy);
            return found;
        }
        while (const dirent* entry = ::readdir(listing.get())) {
            const std::string_view name = entry->d_name;
            if (name != "." && name != "..") found.emplace_back(name);
        }
        return found;
    }

    void remove(int parent, const char* name, const FileURL& url) const {
        struct stat status {};
        if (::fstatat(parent, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return;
        const bool isFolder = S_ISDIR(status.st_mode);
        if (isFolder) {
            UniqueDescriptor place = openPlace(parent, name);
            if (!place || ::fstat(place.get(), &status) != 0) return fail(url, errno);
            if (status.st_dev != device_) return fail(url, EBUSY);
            clear(std::move(place), status, url);
        }
        if (::unlinkat(parent, name, isFolder ? AT_REMOVEDIR : 0) != 0 && errno != ENOENT) fail(url, errno);
    }

    dev_t device_;
    bool passesOver_;
};

} // namespace

void clearFolder(const FileURL& url, const FolderIdentity& folder, bool passesOver) {
    UniqueDescriptor place = openPlace(AT_FDCWD, url.c_str());
    struct stat status {};
    if (!place || ::fstat(place.get(), &status) != 0) throw FileError("Cannot open", url, lastSystemError());
    if (FolderIdentity::of(place.get()) != folder) {
        throw FileError("Cannot open", url, std::make_error_code(std::errc::no_such_file_or_directory));
    }
    Clearing(folder.device, passesOver).clear(std::move(place), status, url);
}

} // namespace corvane
