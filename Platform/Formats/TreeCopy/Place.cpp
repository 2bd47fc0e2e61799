#include "Platform/Formats/TreeCopy/Place.hpp"

#include <dirent.h>
#include <fcntl.h>

#include <algorithm>
#include <memory>

namespace corvane::TreeCopying {
namespace {

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

bool before(const std::string& left, const std::string& right) {
    const bool isFirst = left.starts_with(companionPrefix);
    if (isFirst != right.starts_with(companionPrefix)) return isFirst;
    return left < right;
}

} // namespace

std::optional<struct stat> Place::status() const {
    struct stat status {};
    if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) return status;
    require(errno == ENOENT, "Cannot read", url);
    return std::nullopt;
}

UniqueDescriptor openFolder(int root, const std::string& path, const FileURL& url) {
    UniqueDescriptor folder(::openat(root, ".", folderFlags));
    for (std::size_t start = 0; folder && start < path.size();) {
        const std::size_t end = std::min(path.find('/', start), path.size());
        folder = UniqueDescriptor(::openat(folder.get(), path.substr(start, end - start).c_str(), folderFlags));
        start = end + 1;
    }
    require(static_cast<bool>(folder), "Cannot open the folder", url);
    return folder;
}

UniqueDescriptor openNamedFolder(const FileURL& url) {
    UniqueDescriptor folder(::open(url.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    require(static_cast<bool>(folder), "Cannot open the folder", url);
    return folder;
}

Listing::Listing(int folder, const FileURL& url) {
    struct Close {
        void operator()(DIR* open) const { ::closedir(open); }
    };
    UniqueDescriptor own(::openat(folder, ".", folderFlags));
    require(static_cast<bool>(own), "Cannot read", url);
    const std::unique_ptr<DIR, Close> open(::fdopendir(own.get()));
    require(open != nullptr, "Cannot read", url);
    own.release();
    for (errno = 0; const dirent* entry = ::readdir(open.get()); errno = 0) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") names_.emplace_back(name);
    }
    require(errno == 0, "Cannot read", url);
    std::sort(names_.begin(), names_.end(), before);
}

bool Listing::contains(const std::string& name) const {
    return std::binary_search(names_.begin(), names_.end(), name, before);
}

} // namespace corvane::TreeCopying
