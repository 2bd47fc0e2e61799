#include "Tests/Platform/Formats/Apfs/TestContainer.hpp"

#include "Platform/Formats/Apfs/Object.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <tuple>
#include <vector>

namespace corvane::TestSupport {
namespace {

constexpr std::size_t blockSize = 4096;
constexpr std::size_t blockCount = 128;
constexpr std::uint64_t volumeIdentifier = 900;
constexpr std::uint64_t rootIdentifier = 1000;
constexpr std::uint64_t transaction = 5;
constexpr std::uint64_t firstStream = 5000;

std::string number(std::uint64_t value, std::size_t width) {
    std::string bytes;
    for (std::size_t index = 0; index < width; ++index) bytes += static_cast<char>(value >> (8 * index));
    return bytes;
}

void put(std::string& bytes, std::size_t offset, const std::string& field) {
    bytes.replace(offset, field.size(), field);
}

void seal(std::string& container, std::size_t block) {
    const std::string_view object = std::string_view(container).substr(block * blockSize, blockSize);
    put(container, block * blockSize, number(Apfs::checksum(object), 8));
}

struct TreeRecord {
    std::uint64_t object;
    std::uint64_t type;
    std::string key;
    std::string value;

    std::string fullKey() const { return number(type << 60 | object, 8) + key; }
};

using Pairs = std::vector<std::pair<std::string, std::string>>;

/// From offset 32 on.
std::string node(const Pairs& pairs, bool isRoot, bool isFixed, std::uint16_t level) {
    std::string table, keys, values;
    for (const auto& [key, value] : pairs) {
        const std::size_t keyOffset = keys.size();
        keys += key;
        values = value + values;
        table += number(keyOffset, 2) + (isFixed ? "" : number(key.size(), 2)) + number(values.size(), 2) +
                 (isFixed ? "" : number(value.size(), 2));
    }
    const int flags = (isRoot ? 1 : 0) | (level == 0 ? 2 : 0) | (isFixed ? 4 : 0);
    std::string bytes = number(static_cast<std::uint64_t>(flags), 2) + number(level, 2) + number(pairs.size(), 4) +
                        number(0, 2) + number(table.size(), 2) + std::string(12, '\0') + table + keys;
    bytes.resize(blockSize - 32 - (isRoot ? 40 : 0) - values.size());
    return bytes + values + std::string(isRoot ? 40 : 0, '\0');
}

class ContainerBuilder {
  public:
    explicit ContainerBuilder(bool hasHashedNames) : hasHashedNames_(hasHashedNames) {}

    std::string build(const ContainerItems& items) {
        addFolders();
        std::map<std::string, std::uint64_t> folders;
        std::uint64_t next = 16;
        for (const auto& [path, item] : items) {
            const std::size_t slash = path.rfind('/');
            const std::uint64_t folder = slash == std::string::npos ? 2 : folders[path.substr(0, slash)];
            const std::uint64_t inode = item.linkOf == 0 ? next++ : item.linkOf;
            addName(folder, slash == std::string::npos ? path : path.substr(slash + 1), inode);
            if (S_ISDIR(item.mode)) folders[path] = inode;
            if (item.linkOf == 0) addItem(inode, item);
        }
        writeFileTree();
        writeSuperblocks();
        return std::move(disk_);
    }

  private:
    void object(std::size_t block, std::uint64_t identifier, std::uint64_t type, const std::string& content,
                std::uint64_t written = transaction) {
        put(disk_, block * blockSize + 8, number(identifier, 8) + number(written, 8) + number(type, 8) + content);
        seal(disk_, block);
    }

    void addFolders() {
        addName(1, "root", 2);
        addName(1, "private-dir", 3);
        addItem(2, {.mode = 0040755});
        addItem(3, {.mode = 0040700});
        addName(3, "deleted but open", 999);
        addItem(999, {});
    }

    void addName(std::uint64_t folder, const std::string& name, std::uint64_t inode) {
        const std::uint64_t hash = 0x12345;
        const std::uint64_t size = name.size() + 1;
        records_.push_back({folder, 9, (hasHashedNames_ ? number(hash << 10 | size, 4) : number(size, 2)) + name + '\0',
                            number(inode, 8) + std::string(10, '\0')});
    }

    void addItem(std::uint64_t inode, const ContainerItem& item) {
        const std::uint64_t stream = nextStream_++;
        const bool isLink = S_ISLNK(item.mode);
        if (isLink) addAttribute(inode, "com.apple.fs.symlink", item.data + '\0');
        for (const auto& [name, value] : item.attributes) addAttribute(inode, name, value);
        std::string value(92, '\0');
        put(value, 8, number(stream, 8));
        put(value, 24, number(1'700'000'000'123'456'789, 8));
        put(value, 68, number(item.flags, 4) + number(501, 4) + number(20, 4) + number(item.mode, 2));
        // A name of 5 bytes before the size of the data, so that padding counts.
        value += number(2, 2) + number(48, 2) + number(4, 2) + number(5, 2) + number(8, 2) + number(40, 2);
        value += std::string("name\0\0\0\0", 8) + number(isLink ? 0 : item.data.size(), 8) + std::string(32, '\0');
        records_.push_back({inode, 3, "", value});
        if (!isLink) addStream(stream, item.data);
    }

    void addAttribute(std::uint64_t inode, const std::string& name, const std::string& value) {
        const std::string key = number(name.size() + 1, 2) + name + '\0';
        if (value.size() <= 1000) {
            records_.push_back({inode, 4, key, number(2, 2) + number(value.size(), 2) + value});
            return;
        }
        const std::uint64_t stream = nextStream_++;
        records_.push_back(
            {inode, 4, key,
             number(1, 2) + number(48, 2) + number(stream, 8) + number(value.size(), 8) + std::string(32, '\0')});
        addStream(stream, value);
    }

    /// The blocks of a stream stand backwards and apart from each other.
    void addStream(std::uint64_t stream, const std::string& data) {
        for (std::size_t offset = 0; offset < data.size(); offset += blockSize) {
            const std::string block = data.substr(offset, blockSize);
            const bool isHole = block.find_first_not_of('\0') == std::string::npos;
            if (!isHole) put(disk_, --lastData_ * blockSize, block);
            records_.push_back({stream, 8, number(offset, 8),
                                number(blockSize, 8) + number(isHole ? 0 : lastData_, 8) + number(0, 8)});
        }
    }

    void writeFileTree() {
        const auto order = [](const TreeRecord& each) {
            std::string key = each.key;
            if (each.type == 8) std::ranges::reverse(key); // an offset
            return std::tuple(each.object, each.type, std::move(key));
        };
        std::ranges::sort(records_, {}, order);
        Pairs leaf, children;
        const auto write = [&] {
            const std::size_t index = children.size();
            children.emplace_back(leaf.front().first, number(leafIdentifier + index, 8));
            object(firstLeaf + index, leafIdentifier + index, 3, node(leaf, false, false, 0));
            leaf.clear();
        };
        std::size_t size = 0;
        for (const TreeRecord& each : records_) {
            const std::size_t added = 8 + each.fullKey().size() + each.value.size();
            if (!leaf.empty() && size + added > blockSize / 2) {
                write();
                size = 0;
            }
            leaf.emplace_back(each.fullKey(), each.value);
            size += added;
        }
        write();
        object(fileTreeRoot, rootIdentifier, 2, node(children, true, false, 1));
        writeVolumeMap(children.size());
    }

    static std::pair<std::string, std::string> mapped(std::uint64_t object, std::uint64_t written, std::size_t block) {
        return {number(object, 8) + number(written, 8), number(0, 4) + number(blockSize, 4) + number(block, 8)};
    }

    /// The root has an older state, and one of a checkpoint that was never completed; neither can be read.
    void writeVolumeMap(std::size_t leaves) {
        Pairs map{mapped(rootIdentifier, 1, 0), mapped(rootIdentifier, transaction, fileTreeRoot),
                  mapped(rootIdentifier, transaction + 1, 0)};
        for (std::size_t index = 0; index < leaves; ++index) {
            map.push_back(mapped(leafIdentifier + index, 3, firstLeaf + index));
        }
        object(volumeMap, volumeMap, 0xb, std::string(16, '\0') + number(volumeMapTree, 8));
        object(volumeMapTree, volumeMapTree, 2, node(map, true, true, 0));
    }

    void writeSuperblocks() {
        object(containerMap, containerMap, 0xb, std::string(16, '\0') + number(containerMapTree, 8));
        object(containerMapTree, containerMapTree, 2,
               node({mapped(volumeIdentifier, 2, volumeBlock), mapped(volumeIdentifier + 1, 2, volumeBlock + 1)}, true,
                    true, 0));
        std::string volume(blockSize - 32, '\0');
        put(volume, 0, "APSB");
        put(volume, 56 - 32, number(hasHashedNames_ ? 1 : 0, 8));
        put(volume, 128 - 32, number(volumeMap, 8) + number(rootIdentifier, 8));
        put(volume, 264 - 32, number(1, 8));
        put(volume, 704 - 32, "Made");
        object(volumeBlock, volumeIdentifier, 0xd, volume);
        std::string container(blockSize - 32, '\0');
        put(container, 0, "NXSB" + number(blockSize, 4) + number(blockCount, 8));
        put(container, 104 - 32, number(2, 4) + number(2, 4) + number(olderCheckpoint, 8));
        put(container, 160 - 32, number(containerMap, 8));
        put(container, 180 - 32, number(2, 4) + number(volumeIdentifier, 8));
        object(newestCheckpoint, 1, 1, container);
        // The map of the older checkpoint stands where there is none any more.
        put(container, 160 - 32, number(0, 8));
        object(0, 1, 1, container, transaction - 2);
        object(olderCheckpoint, 1, 1, container, transaction - 1);
    }

    bool hasHashedNames_;
    std::string disk_ = std::string(blockCount * blockSize, '\0');
    std::vector<TreeRecord> records_;
    std::uint64_t nextStream_ = firstStream;
    std::size_t lastData_ = blockCount;
};

} // namespace

std::string testContainer(const ContainerItems& items, bool hasHashedNames) {
    return ContainerBuilder(hasHashedNames).build(items);
}

void setField(std::string& container, std::size_t block, std::size_t offset, std::size_t width, std::uint64_t value) {
    put(container, block * blockSize + offset, number(value, width));
    seal(container, block);
}

void replaceInLeaves(std::string& container, const std::string& found, const std::string& other) {
    for (std::size_t at = firstLeaf * blockSize; (at = container.find(found, at)) < firstData * blockSize; ++at) {
        put(container, at, other);
        seal(container, at / blockSize);
    }
}

} // namespace corvane::TestSupport
