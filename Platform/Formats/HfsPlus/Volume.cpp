#include "Platform/Formats/HfsPlus/Volume.hpp"

#include "Platform/Formats/AccessSource.hpp"
#include "Platform/Formats/CompressedFile/CompressedFile.hpp"
#include "Platform/Formats/EntryName.hpp"
#include "Platform/Formats/ExtendedAttributes/AppleDouble.hpp"
#include "Platform/Formats/FormatError.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <utility>

namespace corvane::HfsPlus {
namespace {

/// Among an item's owner flags.
constexpr std::uint8_t compressedFlag = 0x20;

/// Of the bytes behind the type, those that the file system uses itself are not the Finder's: the document's number
/// and the date at which it was added, and the count of writes. A link's type and creator say that it is one.
std::string finderInfo(const Item& item) {
    std::string info = item.finderInfo;
    info.replace(16, 8, 8, '\0');
    info.replace(28, 4, 4, '\0');
    if (S_ISLNK(item.mode)) info.replace(0, 8, 8, '\0');
    return info;
}

PartAccess behind(const RandomAccess& disk, std::uint64_t offset) {
    if (offset > disk.size()) throw FormatError("hfsplus", offset, "expected a volume, found the end of the disk");
    return {disk, offset, disk.size() - offset};
}

} // namespace

Volume::Volume(const RandomAccess& disk)
    : header_(VolumeHeader::read(disk)),
      disk_(behind(disk, header_.offset)),
      forks_(disk_, header_),
      attributes_(forks_, header_),
      hierarchy_(readCatalog(*forks_.open(forks_.find(header_.catalog, Numbers::catalog, ForkKind::data)))),
      name_(hierarchy_.item(Numbers::root).name) {
    requireDistinctBlocks();
    for (Hierarchy::Place& each : hierarchy_.places(header_.isJournaled)) entries_.push_back(entry(std::move(each)));
}

/// Each block belongs to one fork; where two claim it, at least one of them has the other's bytes.
void Volume::requireDistinctBlocks() const {
    std::vector<Extent> all;
    const auto add = [&](const ForkRecord& record, std::uint32_t number, ForkKind kind) {
        const std::vector<Extent> extents = forks_.find(record, number, kind).extents;
        all.insert(all.end(), extents.begin(), extents.end());
    };
    add(header_.allocation, Numbers::allocation, ForkKind::data);
    add(header_.extents, Numbers::extents, ForkKind::data);
    add(header_.catalog, Numbers::catalog, ForkKind::data);
    add(header_.attributes, Numbers::attributes, ForkKind::data);
    add(header_.startup, Numbers::startup, ForkKind::data);
    for (const Item& each : hierarchy_.items()) {
        add(each.data, each.number, ForkKind::data);
        add(each.resource, each.number, ForkKind::resource);
    }
    attributes_.appendExtents(all);
    std::sort(all.begin(), all.end(), [](const Extent& left, const Extent& right) { return left.start < right.start; });
    const auto shared = std::adjacent_find(all.begin(), all.end(), [](const Extent& left, const Extent& right) {
        return right.start - left.start < left.count;
    });
    if (shared == all.end()) return;
    throw FormatError("hfsplus: expected each block in one file, found block " + std::to_string((shared + 1)->start) +
                      " in two places");
}

VolumeEntry Volume::entry(Hierarchy::Place place) const {
    const Item& item = *place.item;
    VolumeEntry entry;
    entry.path = std::move(place.path);
    entry.mode = item.mode;
    entry.owner = item.owner;
    entry.group = item.group;
    entry.modified.tv_sec = item.modified;
    entry.number = item.number;
    if (S_ISLNK(item.mode)) entry.linkTarget = linkTarget(item);
    if (S_ISREG(item.mode) || S_ISLNK(item.mode)) entry.size = item.data.size;
    if (S_ISREG(item.mode) && isCompressed(item)) {
        entry.size = CompressedFile::plainSize(
            attributes_.front(item.number, CompressedFile::attributeName, CompressedFile::headerSize));
    }
    const ForkRecord& fork = item.data.size != 0 ? item.data : item.resource;
    entry.position = header_.offset + std::uint64_t{fork.extents.front().start} * header_.blockSize;
    return entry;
}

bool Volume::isCompressed(const Item& item) const {
    return (item.ownerFlags & compressedFlag) != 0 && attributes_.has(item.number, CompressedFile::attributeName);
}

std::unique_ptr<RandomAccess> Volume::fork(const Item& item, ForkKind kind) const {
    return forks_.open(forks_.find(kind == ForkKind::data ? item.data : item.resource, item.number, kind));
}

std::string Volume::linkTarget(const Item& item) const {
    const std::uint64_t size = item.data.size;
    if (size == 0 || size > EntryName::pathLimit) {
        throw FormatError("hfsplus: expected a link of 1 to " + std::to_string(EntryName::pathLimit) + " bytes in \"" +
                          item.name + "\", found one of " + std::to_string(size));
    }
    std::string text(static_cast<std::size_t>(size), '\0');
    fork(item, ForkKind::data)->read(0, text);
    if (text.find('\0') == std::string::npos) return text;
    throw FormatError("hfsplus: expected the text of a link in \"" + item.name + "\", found a zero byte");
}

std::unique_ptr<ByteSource> Volume::open(const VolumeEntry& file) const {
    const Item& item = hierarchy_.item(static_cast<std::uint32_t>(file.number));
    if (!S_ISREG(item.mode)) throw FormatError("hfsplus: expected a file at \"" + file.path + "\"");
    if (!isCompressed(item)) return std::make_unique<AccessSource>(fork(item, ForkKind::data));
    return CompressedFile::open(*attributes_.value(item.number, CompressedFile::attributeName),
                                item.resource.size == 0 ? nullptr : fork(item, ForkKind::resource));
}

std::map<std::string, std::string> Volume::attributes(const VolumeEntry& entry) const {
    const Item& item = hierarchy_.item(static_cast<std::uint32_t>(entry.number));
    std::uint64_t room = volumeAttributeLimit;
    std::map<std::string, std::string> found = attributes_.values(item.number, room);
    std::erase_if(found, [](const auto& each) { return each.first.starts_with(systemAttributePrefix); });
    std::string info = finderInfo(item);
    if (!isBlankAttribute(ExtendedAttributes::finderInfo, info)) {
        found[ExtendedAttributes::finderInfo] = std::move(info);
    }
    if (isCompressed(item)) {
        found.erase(CompressedFile::attributeName);
    } else if (item.resource.size != 0) {
        found[ExtendedAttributes::resourceFork] = readAttribute(*fork(item, ForkKind::resource), room);
    }
    return found;
}

} // namespace corvane::HfsPlus
