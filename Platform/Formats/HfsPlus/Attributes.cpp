#include "Platform/Formats/HfsPlus/Attributes.hpp"

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/HfsPlus/Name.hpp"
#include "Platform/Formats/HfsPlus/Tree.hpp"
#include "Platform/Formats/Volume/Volume.hpp"

#include <algorithm>

namespace corvane::HfsPlus {
namespace {

enum RecordType : std::uint32_t { inlineValue = 0x10, forkValue = 0x20, furtherExtents = 0x30 };

} // namespace

std::string readAttribute(const RandomAccess& bytes, std::uint64_t& room) {
    if (bytes.size() > room) {
        throw FormatError("hfsplus: expected attributes of at most " + std::to_string(volumeAttributeLimit) +
                          " bytes at one item, found one of " + std::to_string(bytes.size()) + " where " +
                          std::to_string(room) + " were left");
    }
    room -= bytes.size();
    std::string value(static_cast<std::size_t>(bytes.size()), '\0');
    bytes.read(0, value);
    return value;
}

Attributes::Attributes(const ForkTable& forks, const VolumeHeader& header)
    : forks_(forks), file_(forks.open(forks.find(header.attributes, Numbers::attributes, ForkKind::data))) {
    forEachRecord(*file_, "hfsplus attributes", [this](ByteCursor key, ByteCursor value) { addRecord(key, value); });
    requireWhole();
}

void Attributes::addRecord(ByteCursor& key, ByteCursor& value) {
    key.skip(2);
    const std::uint32_t item = key.u32BigEndian();
    const std::uint32_t firstBlock = key.u32BigEndian();
    std::string name = readName(key);
    if (name.empty() || name.find('\0') != std::string::npos) key.fail("expected the name of an attribute");
    const std::uint32_t type = value.u32BigEndian();
    if (type != furtherExtents) {
        const bool isNew = places_.emplace(std::pair(item, name), readPlace(value, type)).second;
        if (!isNew) key.fail("found attribute " + name + " of item " + std::to_string(item) + " twice");
        return;
    }
    const auto place = places_.find({item, name});
    if (place == places_.end() || !place->second.hasFork || place->second.foundBlocks != firstBlock) {
        key.fail("expected the blocks of attribute " + name + " before those from " + std::to_string(firstBlock));
    }
    value.skip(4);
    place->second.foundBlocks +=
        HfsPlus::appendExtents(place->second.extents, readExtents(value), forks_.volumeBlocks());
}

Attributes::Place Attributes::readPlace(ByteCursor& value, std::uint32_t type) const {
    Place place;
    if (type == inlineValue) {
        value.skip(8);
        place.size = value.u32BigEndian();
        place.offset = value.offset();
        if (place.size > value.remaining()) value.fail("expected an attribute within its record");
    } else if (type == forkValue) {
        value.skip(4);
        const ForkRecord fork = readFork(value);
        place.hasFork = true;
        place.size = fork.size;
        place.blocks = fork.blocks;
        place.foundBlocks = HfsPlus::appendExtents(place.extents, fork.extents, forks_.volumeBlocks());
    } else {
        value.fail("expected an attribute of type 16, 32 or 48, found " + std::to_string(type));
    }
    return place;
}

void Attributes::requireWhole() const {
    for (const auto& [key, place] : places_) {
        if (place.foundBlocks != place.blocks) {
            throw FormatError("hfsplus attributes: expected " + std::to_string(place.blocks) + " blocks of attribute " +
                              key.second + ", found " + std::to_string(place.foundBlocks));
        }
        if (place.hasFork) forks_.checked(place.size, place.extents);
    }
}

std::unique_ptr<RandomAccess> Attributes::content(const Place& place) const {
    if (place.hasFork) return forks_.open({place.size, place.extents});
    return std::make_unique<PartAccess>(*file_, place.offset, place.size);
}

bool Attributes::has(std::uint32_t item, const std::string& name) const { return places_.contains({item, name}); }

std::optional<std::string> Attributes::value(std::uint32_t item, const std::string& name) const {
    const auto place = places_.find({item, name});
    if (place == places_.end()) return {};
    std::uint64_t room = volumeAttributeLimit;
    return readAttribute(*content(place->second), room);
}

std::string Attributes::front(std::uint32_t item, const std::string& name, std::size_t limit) const {
    const auto place = places_.find({item, name});
    if (place == places_.end()) return {};
    std::string bytes(static_cast<std::size_t>(std::min<std::uint64_t>(place->second.size, limit)), '\0');
    content(place->second)->read(0, bytes);
    return bytes;
}

std::map<std::string, std::string> Attributes::values(std::uint32_t item, std::uint64_t& room) const {
    std::map<std::string, std::string> found;
    for (auto each = places_.lower_bound({item, ""}); each != places_.end() && each->first.first == item; ++each) {
        found.emplace(each->first.second, readAttribute(*content(each->second), room));
    }
    return found;
}

void Attributes::appendExtents(std::vector<Extent>& extents) const {
    for (const auto& [key, place] : places_) extents.insert(extents.end(), place.extents.begin(), place.extents.end());
}

} // namespace corvane::HfsPlus
