#include "Platform/Formats/DiskImage/MountableVolume.hpp"

#include "Platform/Formats/Apfs/Volume.hpp"
#include "Platform/Formats/DiskImage/ForeignVolume.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/HfsPlus/Volume.hpp"
#include "Platform/Formats/PartitionMap/PartitionMap.hpp"

#include <algorithm>

namespace corvane {
namespace {

constexpr const char* storeHint = "7C3457EF-0000-11AA-AA11-00306543ECAC";
constexpr const char* containerHint = "EF57347C-0000-11AA-AA11-00306543ECAC";
constexpr const char* apfsHint = "41504653-0000-11AA-AA11-00306543ECAC";
constexpr const char* hfsHint = "Apple_HFS";
/// Parts that get no device.
constexpr const char* freeSpace = "Apple_Free";

bool isMountable(const RandomAccess& part) {
    return HfsPlus::Volume::isRecognized(part) || Apfs::Volume::isRecognized(part);
}

[[noreturn]] void refuse(const RandomAccess& disk, const PartitionMap::Map& map) {
    for (const PartitionMap::Part& part : map.parts) {
        const std::string kinds = foreignVolumeKinds(PartAccess(disk, part.offset, part.size));
        if (!kinds.empty()) throw FormatError("disk image: " + kinds + " volumes are not supported");
    }
    throw FormatError("disk image: it holds no volume of a known kind");
}

/// What a system makes of the map: the whole disk, and every part.
std::vector<DiskEntity> entitiesOf(const PartitionMap::Map& map, bool isContainer) {
    if (map.scheme == PartitionMap::Scheme::none) return {{.contentHint = isContainer ? storeHint : hfsHint}};
    std::vector<DiskEntity> entities{{.contentHint = std::string(PartitionMap::schemeName(map.scheme))}};
    unsigned slice = 0;
    for (const PartitionMap::Part& part : map.parts) {
        ++slice;
        if (part.type != freeSpace) entities.push_back({.contentHint = part.type, .slice = slice});
    }
    return entities;
}

} // namespace

MountableVolume::MountableVolume(const RandomAccess& disk) {
    const PartitionMap::Map map = PartitionMap::read(disk);
    unsigned slice = 0;
    for (const PartitionMap::Part& part : map.parts) {
        ++slice;
        auto access = std::make_unique<PartAccess>(disk, part.offset, part.size);
        if (!isMountable(*access)) continue;
        part_ = std::move(access);
        break;
    }
    if (!part_) refuse(disk, map);

    const bool isContainer = Apfs::Volume::isRecognized(*part_);
    entities_ = entitiesOf(map, isContainer);
    if (isContainer) {
        volume_ = std::make_unique<Apfs::Volume>(*part_);
        entities_.push_back({.contentHint = containerHint, .disk = 1});
        entities_.push_back({.contentHint = apfsHint, .disk = 1, .slice = 1, .isMounted = true});
        return;
    }
    volume_ = std::make_unique<HfsPlus::Volume>(*part_);
    if (map.scheme == PartitionMap::Scheme::none) slice = 0;
    std::find_if(entities_.begin(), entities_.end(), [&](const DiskEntity& each) {
        return each.slice == slice;
    })->isMounted = true;
}

} // namespace corvane
