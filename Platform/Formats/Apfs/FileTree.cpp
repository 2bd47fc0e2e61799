#include "Platform/Formats/Apfs/FileTree.hpp"

#include "Platform/Formats/Apfs/Tree.hpp"
#include "Platform/Formats/EntryName.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Volume/Volume.hpp"
#include "Support/Text.hpp"

#include <algorithm>
#include <limits>
#include <tuple>

namespace corvane::Apfs {
namespace {

/// The low bits of the first field of a key; the rest is the type of the record.
constexpr int numberBits = 60;
constexpr std::uint64_t numberMask = (std::uint64_t{1} << numberBits) - 1;

enum RecordType { inodeRecord = 3, attributeRecord = 4, extentRecord = 8, directoryRecord = 9 };

constexpr std::size_t inodeSize = 92;
constexpr std::uint8_t dataStreamField = 8;
constexpr std::uint16_t streamFlag = 1;
constexpr std::uint16_t embeddedFlag = 2;

constexpr std::uint64_t extentSizeMask = (std::uint64_t{1} << 56) - 1;
constexpr std::uint64_t largestFile = std::numeric_limits<std::int64_t>::max();

template <class Item>
void requireRoom(const std::vector<Item>& items, const Record& record) {
    if (items.size() < volumeEntryLimit) return;
    record.fail("expected at most " + std::to_string(volumeEntryLimit) + " files, names and attributes");
}

std::uint64_t streamSize(const Record& record, std::size_t offset) {
    const std::uint64_t size = record.u64(offset);
    if (size > largestFile) record.fail("expected a file below 8 EiB, found " + std::to_string(size) + " bytes");
    return size;
}

/// The optional fields: a count, the descriptions of all and their values, padded to 8 bytes.
std::uint64_t dataSize(const Record& inode) {
    if (inode.size() == inodeSize) return 0;
    const std::size_t count = inode.u16(inodeSize);
    const std::size_t descriptions = inodeSize + 4;
    std::size_t value = descriptions + 4 * count;
    for (std::size_t index = 0; index < count; ++index) {
        const std::size_t description = descriptions + 4 * index;
        if (inode.u8(description) == dataStreamField) return streamSize(inode, value);
        value += (inode.u16(description + 2) + std::size_t{7}) / 8 * 8;
    }
    return 0;
}

Inode readInode(std::uint64_t number, const Record& value) {
    return {.number = number,
            .stream = value.u64(8),
            .size = dataSize(value),
            .modified = static_cast<std::int64_t>(value.u64(24)),
            .flags = value.u32(68),
            .owner = value.u32(72),
            .group = value.u32(76),
            .mode = value.u16(80)};
}

DirectoryEntry readDirectoryEntry(std::uint64_t folder, const Record& key, const Record& value, bool isHashed) {
    constexpr std::uint32_t sizeMask = 0x3FF;
    const std::string_view name = isHashed ? key.text(12, key.u32(8) & sizeMask) : key.text(10, key.u16(8));
    EntryName::checkComponent(name, formatName);
    if (Text::decodedUTF8(name) != name) key.fail("expected a name in UTF-8, found \"" + std::string(name) + "\"");
    return {folder, value.u64(0), std::string(name)};
}

Attribute readAttribute(std::uint64_t inode, const Record& key, const Record& value) {
    Attribute attribute{.inode = inode, .name = std::string(key.text(10, key.u16(8)))};
    const std::uint16_t flags = value.u16(0);
    const std::uint16_t size = value.u16(2);
    if (attribute.name.empty() || ((flags & streamFlag) != 0) == ((flags & embeddedFlag) != 0)) {
        value.fail("expected an attribute with a name and with one value");
    }
    const Record content = value.part(4, size);
    if ((flags & embeddedFlag) != 0) {
        attribute.place = content.place();
        attribute.size = content.size();
    } else {
        attribute.stream = content.u64(0);
        attribute.size = streamSize(content, 8);
        if (attribute.stream == 0) value.fail("expected the number of a stream, found 0");
    }
    return attribute;
}

/// What lies within the disk, in whole blocks.
Extent readExtent(std::uint64_t stream, const Record& key, const Record& value, std::uint64_t blockSize,
                  std::uint64_t blockCount) {
    const std::uint64_t size = value.u64(0) & extentSizeMask;
    const std::uint64_t block = value.u64(8);
    const std::uint64_t offset = key.u64(8);
    if (size == 0 || size % blockSize != 0 || offset % blockSize != 0 || offset > largestFile) {
        value.fail("expected an extent of whole blocks, found " + std::to_string(size) + " bytes at " +
                   std::to_string(offset));
    }
    if (block != 0 && (block >= blockCount || size / blockSize > blockCount - block)) {
        value.fail("an extent passes the end of the disk: " + std::to_string(size) + " bytes from block " +
                   std::to_string(block) + " on");
    }
    return {.stream = stream, .offset = offset, .size = size, .place = block * blockSize};
}

bool follows(const std::vector<Extent>& extents, const Extent& next) {
    if (extents.empty() || extents.back().stream != next.stream) return true;
    return next.offset >= extents.back().offset + extents.back().size;
}

template <class Item>
std::span<const Item> rangeOf(const std::vector<Item>& items, std::uint64_t Item::*key, std::uint64_t wanted) {
    return {std::ranges::lower_bound(items, wanted, {}, key), std::ranges::upper_bound(items, wanted, {}, key)};
}

/// By what no two entries share.
auto identity(const DirectoryEntry& entry) { return std::tie(entry.folder, entry.name); }

void sort(std::vector<DirectoryEntry>& entries) {
    std::ranges::sort(entries, {}, identity);
    const auto twice = std::ranges::adjacent_find(entries, {}, identity);
    if (twice == entries.end()) return;
    throw FormatError(std::string(formatName) + ": two files of one folder are named \"" + twice->name + "\"");
}

} // namespace

FileTree::FileTree(const ObjectReader& objects, const VolumeState& volume) {
    std::uint64_t previous = 0;
    const auto visit = [&](const Record& key, const Record& value) {
        const std::uint64_t number = key.u64(0) & numberMask;
        const auto type = key.u64(0) >> numberBits;
        if (number < previous) key.fail("the records of the file tree are out of order");
        previous = number;
        if (type == inodeRecord) {
            requireRoom(inodes_, key);
            if (!inodes_.empty() && inodes_.back().number == number) key.fail("an inode stands in the tree twice");
            inodes_.push_back(readInode(number, value));
        } else if (type == attributeRecord) {
            requireRoom(attributes_, key);
            attributes_.push_back(readAttribute(number, key, value));
        } else if (type == extentRecord) {
            const Extent extent = readExtent(number, key, value, objects.blockSize(), objects.blockCount());
            if (!follows(extents_, extent)) key.fail("two extents of a stream overlap");
            extents_.push_back(extent);
        } else if (type == directoryRecord) {
            requireRoom(directoryEntries_, key);
            directoryEntries_.push_back(readDirectoryEntry(number, key, value, volume.hasHashedNames));
        }
    };
    walkTree(
        objects, TreeKind::fileTree, volume.root, volume.rootIdentifier,
        [&](std::uint64_t child) { return volume.map.address(child); }, visit);
    sort(directoryEntries_);
}

const Inode* FileTree::inode(std::uint64_t number) const {
    const auto range = rangeOf(inodes_, &Inode::number, number);
    return range.empty() ? nullptr : &range.front();
}

std::span<const DirectoryEntry> FileTree::entriesOf(std::uint64_t folder) const {
    return rangeOf(directoryEntries_, &DirectoryEntry::folder, folder);
}

std::span<const Extent> FileTree::extentsOf(std::uint64_t stream) const {
    return rangeOf(extents_, &Extent::stream, stream);
}

std::span<const Attribute> FileTree::attributesOf(std::uint64_t inode) const {
    return rangeOf(attributes_, &Attribute::inode, inode);
}

} // namespace corvane::Apfs
