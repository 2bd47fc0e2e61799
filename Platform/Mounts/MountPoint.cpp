#include "Platform/Mounts/MountPoint.hpp"

#include "Platform/Formats/EntryName.hpp"
#include "Platform/Mounts/MountRegistry.hpp"
#include "Platform/Trust/PrivateFiles.hpp"
#include "Support/FileError.hpp"
#include "Support/FileManager.hpp"
#include "Support/Text.hpp"

#include <unistd.h>

#include <algorithm>
#include <utility>

namespace corvane {
namespace {

/// Volumes of one name that stand side by side.
constexpr unsigned nameLimit = 999;

[[noreturn]] void refuse(const FileURL& url, std::errc reason) {
    throw FileError("Cannot attach at", url, std::make_error_code(reason));
}

FileURL resolved(const FileURL& url) {
    std::error_code failure;
    FileURL absolute = std::filesystem::canonical(url, failure);
    if (failure) throw FileError("Cannot attach at", url, failure);
    return absolute;
}

/// False when something stands there.
bool makeFolder(const FileURL& url) {
    if (::mkdir(url.c_str(), S_IRWXU | S_IRWXG | S_IRWXO) == 0) return true;
    if (errno != EEXIST) throw FileError("Cannot create the folder", url, lastSystemError());
    return false;
}

void requireUnused(const FileURL& url) {
    if (!FileManager::isDirectory(url)) refuse(url, std::errc::not_a_directory);
    const std::vector<MountRecord> mounts = MountRegistry::ofUser().mounts();
    const bool isUsed =
        std::any_of(mounts.begin(), mounts.end(), [&](const MountRecord& mount) { return mount.mountPoint == url; });
    if (isUsed) refuse(url, std::errc::device_or_resource_busy);
    if (!FileManager::contentsOfDirectory(url).empty()) refuse(url, std::errc::directory_not_empty);
}

} // namespace

MountPoint::MountPoint(FileURL url, bool isOwn)
    : url_(std::move(url)), isOwn_(isOwn), mode_(FileManager::itemStatus(url_).st_mode & 07777U) {
    const auto folder = FolderIdentity::of(url_);
    if (!folder) throw FileError("Cannot attach at", url_, lastSystemError());
    folder_ = *folder;
}

MountPoint::MountPoint(MountPoint&& other) noexcept
    : url_(std::move(other.url_)),
      isOwn_(std::exchange(other.isOwn_, false)),
      folder_(other.folder_),
      mode_(other.mode_) {}

MountPoint::~MountPoint() {
    if (isOwn_ && isUnchanged()) ::rmdir(url_.c_str());
}

MountPoint MountPoint::at(const FileURL& url) {
    const FileURL parent = deletingLastPathComponent(url);
    std::error_code ignored;
    if (!std::filesystem::exists(std::filesystem::symlink_status(url, ignored))) {
        const FileURL made = resolved(parent.empty() ? "." : parent) / lastPathComponent(url);
        if (makeFolder(made)) return {made, true};
    }
    const FileURL found = resolved(url);
    requireUnused(found);
    return {found, false};
}

MountPoint MountPoint::ofUser(std::string_view volumeName) {
    const FileURL volumes = PrivateFiles::baseFolder("XDG_STATE_HOME", "~/.local/state") / "corvane" / "volumes";
    FileManager::createPrivateDirectory(deletingLastPathComponent(volumes));
    FileManager::createPrivateDirectory(volumes);
    const FileURL folder = resolved(volumes);
    const std::string longest = " " + std::to_string(nameLimit);
    const std::string name = volumeFileName(volumeName, EntryName::nameLimit - longest.size());
    for (unsigned number = 0; number <= nameLimit; ++number) {
        const FileURL url = folder / (number == 0 ? name : name + " " + std::to_string(number));
        if (makeFolder(url)) return {url, true};
    }
    refuse(folder / name, std::errc::file_exists);
}

bool MountPoint::isUnchanged() const { return FolderIdentity::of(url_) == folder_; }

void MountPoint::requireUnchanged() const {
    if (!isUnchanged()) refuse(url_, std::errc::device_or_resource_busy);
}

std::string volumeFileName(std::string_view volumeName, std::size_t limit) {
    std::string name = Text::printable(volumeName);
    std::replace(name.begin(), name.end(), '/', ':');
    if (name.size() > limit) {
        // A character that the limit cuts goes as a whole.
        while ((static_cast<unsigned char>(name[limit]) & 0xC0U) == 0x80U) --limit;
        name.resize(limit);
    }
    if (name.empty() || name == "." || name == "..") return "Untitled";
    return name;
}

} // namespace corvane
