#include "Platform/Mounts/MountRegistry.hpp"

#include "Platform/Mounts/MountRecordFile.hpp"
#include "Platform/Trust/PrivateFiles.hpp"
#include "Support/FileManager.hpp"

#include <algorithm>

namespace corvane {
namespace {

constexpr std::string_view extension = "plist";
constexpr std::uint64_t recordLimit = std::uint64_t{1} << 20;
/// Those below are a machine's own disks, as on other systems.
constexpr unsigned firstDevice = 4;

/// Only a certain answer counts: a disk may be out of reach for a while.
bool isGone(const MountRecord& record) {
    const auto found = FolderIdentity::of(record.mountPoint);
    return found ? *found != record.folder : errno == ENOENT || errno == ENOTDIR;
}

/// The lowest device from which on some are free. @param mounts by device
unsigned freeDevice(const std::vector<MountRecord>& mounts, unsigned count) {
    unsigned device = firstDevice;
    for (const MountRecord& mount : mounts) {
        if (device + count <= mount.device) break;
        device = std::max(device, mount.device + mount.deviceCount());
    }
    return device;
}

} // namespace

unsigned MountRecord::deviceCount() const {
    unsigned count = 1;
    for (const DiskEntity& entity : entities) count = std::max(count, entity.disk + 1);
    return count;
}

MountRegistry MountRegistry::ofUser() {
    return MountRegistry(PrivateFiles::baseFolder("XDG_STATE_HOME", "~/.local/state") / "corvane" / "mounts");
}

FileURL MountRegistry::file(const MountRecord& record) const {
    return folder_ / ("disk" + std::to_string(record.device) + "." + std::string(extension));
}

std::vector<MountRecord> MountRegistry::liveMounts() const {
    std::vector<MountRecord> live;
    for (const FileURL& url : PrivateFiles::list(folder_, extension, PrivateFiles::writableByOthers)) {
        const auto record = parseMountRecord(FileManager::readFile(url, recordLimit));
        if (!record || url != file(*record)) continue;
        if (isGone(*record)) {
            FileManager::removeItem(url);
        } else {
            live.push_back(*record);
        }
    }
    std::sort(live.begin(), live.end(), [](auto& left, auto& right) { return left.device < right.device; });
    return live;
}

std::vector<MountRecord> MountRegistry::mounts() const {
    if (!FileManager::isDirectory(folder_)) return {};
    const UniqueDescriptor held = PrivateFiles::lock(folder_);
    return liveMounts();
}

MountRecord MountRegistry::add(MountRecord record, const std::function<void()>& place) const {
    FileManager::createPrivateDirectory(deletingLastPathComponent(folder_));
    FileManager::createPrivateDirectory(folder_);
    const UniqueDescriptor held = PrivateFiles::lock(folder_);
    record.device = freeDevice(liveMounts(), record.deviceCount());
    PrivateFiles::write(file(record), serializedMountRecord(record));
    try {
        place();
    } catch (...) {
        FileManager::removeItem(file(record));
        throw;
    }
    return record;
}

void MountRegistry::remove(const MountRecord& record, const std::function<void()>& clear) const {
    if (!FileManager::isDirectory(folder_)) return;
    const UniqueDescriptor held = PrivateFiles::lock(folder_);
    const FileURL url = file(record);
    if (!FileManager::fileExists(url) || parseMountRecord(FileManager::readFile(url, recordLimit)) != record) return;
    clear();
    FileManager::removeItem(url);
}

} // namespace corvane
