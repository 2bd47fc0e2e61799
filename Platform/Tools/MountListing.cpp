#include "Platform/Tools/MountListing.hpp"

#include "Support/PropertyList.hpp"
#include "Support/Text.hpp"

#include <unistd.h>

#include <utility>

namespace corvane::Tools {
namespace {

using PropertyList::Array;
using PropertyList::Dictionary;
using PropertyList::Value;

constexpr std::int64_t blockSize = 512;
constexpr std::size_t deviceWidth = 16;
constexpr std::size_t hintWidth = 31;
constexpr std::size_t keyWidth = 16;

std::string padded(std::string text, std::size_t width) {
    if (text.size() < width) text.append(width - text.size(), ' ');
    return text;
}

std::string printable(const FileURL& url) { return Text::printable(url.string()); }

/// For programs, which compare it with other paths.
std::string exact(const FileURL& url) { return PropertyList::representable(url.string()); }

Value entityList(const MountRecord& mount, const DiskEntity& entity) {
    Dictionary list{{"content-hint", {entity.contentHint}}, {"dev-entry", {deviceName(mount, entity)}}};
    if (entity.isMounted) list.emplace("mount-point", Value{exact(mount.mountPoint)});
    return {std::move(list)};
}

/// No process serves an image, so there is none to name, nor a picture of it.
Value mountList(const MountRecord& mount) {
    Array entities;
    for (const DiskEntity& entity : mount.entities) entities.push_back(entityList(mount, entity));
    return {Dictionary{{"autodiskmount", {true}},
                       {"blockcount", {static_cast<std::int64_t>(mount.blockCount)}},
                       {"blocksize", {blockSize}},
                       {"diskimages2", {false}},
                       {"hdid-pid", {std::int64_t{0}}},
                       {"icon-path", {std::string()}},
                       {"image-encrypted", {mount.isEncrypted}},
                       {"image-path", {exact(mount.imagePath)}},
                       {"image-type", {mount.imageKind}},
                       {"owner-uid", {static_cast<std::int64_t>(::getuid())}},
                       {"removable", {true}},
                       {"system-entities", {std::move(entities)}},
                       {"writeable", {false}}}};
}

} // namespace

std::string deviceName(const MountRecord& mount, const DiskEntity& entity) {
    const std::string disk = "/dev/disk" + std::to_string(mount.device + entity.disk);
    return entity.slice == 0 ? disk : disk + "s" + std::to_string(entity.slice);
}

std::string entityTable(const MountRecord& mount) {
    std::string table;
    for (const DiskEntity& entity : mount.entities) {
        table += padded(deviceName(mount, entity), deviceWidth) + "\t" + padded(entity.contentHint, hintWidth) + "\t";
        if (entity.isMounted) table += printable(mount.mountPoint);
        table += "\n";
    }
    return table;
}

std::string imageListing(const std::vector<MountRecord>& mounts) {
    std::string listing = padded("framework", keyWidth) + ": " + CORVANE_VERSION + "\n";
    for (const MountRecord& mount : mounts) {
        const std::pair<const char*, std::string> lines[] = {
            {"image-path", printable(mount.imagePath)},
            {"image-type", mount.imageKind},
            {"image-encrypted", mount.isEncrypted ? "TRUE" : "FALSE"},
            {"blockcount", std::to_string(mount.blockCount)},
            {"blocksize", std::to_string(blockSize)},
            {"writeable", "FALSE"},
        };
        listing += std::string(48, '=') + "\n";
        for (const auto& [key, value] : lines) listing += padded(key, keyWidth) + ": " + value + "\n";
        listing += entityTable(mount);
    }
    return listing;
}

std::string imageList(const std::vector<MountRecord>& mounts) {
    const std::string version = CORVANE_VERSION;
    Dictionary list{{"framework", {version}}, {"revision", {version}}, {"vendor", {std::string("corvane")}}};
    Array images;
    for (const MountRecord& mount : mounts) images.push_back(mountList(mount));
    if (!images.empty()) list.emplace("images", Value{std::move(images)});
    return PropertyList::serializedXML({std::move(list)});
}

} // namespace corvane::Tools
