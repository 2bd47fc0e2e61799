#include "Platform/Formats/HfsPlus/Catalog.hpp"

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/HfsPlus/Name.hpp"
#include "Platform/Formats/HfsPlus/Tree.hpp"
#include "Platform/Formats/Volume/Volume.hpp"

#include <sys/stat.h>

#include <algorithm>

namespace corvane::HfsPlus {
namespace {

enum RecordType : std::uint16_t { folderRecord = 1, fileRecord = 2, folderThread = 3, fileThread = 4 };

/// Seconds from 1904 to 1970.
constexpr std::int64_t epochDistance = 2082844800;

std::uint16_t checkedMode(const ByteCursor& value, bool isFolder, std::uint16_t mode) {
    // Systems without users left the field blank.
    if ((mode & S_IFMT) == 0) return isFolder ? S_IFDIR | 0755 : S_IFREG | 0644;
    if (S_ISDIR(mode) == isFolder) return mode;
    value.fail(isFolder ? "expected the mode of a folder, found another" : "found the mode of a folder at a file");
}

void readItem(ByteCursor& value, Item& item) {
    value.skip(6);
    item.number = value.u32BigEndian();
    value.skip(4);
    item.modified = std::max<std::int64_t>(std::int64_t{value.u32BigEndian()} - epochDistance, 0);
    value.skip(12);
    item.owner = value.u32BigEndian();
    item.group = value.u32BigEndian();
    value.skip(1);
    item.ownerFlags = value.u8();
    item.mode = checkedMode(value, item.isFolder, value.u16BigEndian());
    item.special = value.u32BigEndian();
    item.finderInfo = value.bytes(32);
    value.skip(8);
    if (item.isFolder) return;
    item.data = readFork(value);
    item.resource = readFork(value);
}

} // namespace

std::vector<Item> readCatalog(const RandomAccess& file) {
    std::vector<Item> items;
    forEachRecord(file, "hfsplus catalog", [&](ByteCursor key, ByteCursor value) {
        const std::uint16_t type = value.u16BigEndian();
        if (type == folderThread || type == fileThread) return;
        if (type != folderRecord && type != fileRecord) {
            value.fail("expected a record of type 1 to 4, found " + std::to_string(type));
        }
        if (items.size() == volumeEntryLimit) value.fail("found more than " + std::to_string(items.size()) + " items");
        Item& item = items.emplace_back();
        item.isFolder = type == folderRecord;
        item.parent = key.u32BigEndian();
        item.name = readName(key);
        std::replace(item.name.begin(), item.name.end(), '/', ':');
        readItem(value, item);
    });
    return items;
}

} // namespace corvane::HfsPlus
