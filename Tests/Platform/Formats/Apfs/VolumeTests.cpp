#include "Platform/Formats/Apfs/Volume.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Tests/Platform/Formats/Apfs/TestContainer.hpp"
#include "Tests/TestSupport.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <functional>

namespace corvane {
namespace {

using namespace TestSupport;

class MemoryDisk : public RandomAccess {
  public:
    explicit MemoryDisk(std::string bytes) : bytes_(std::move(bytes)) {}
    std::uint64_t size() const override { return bytes_.size(); }
    void read(std::uint64_t offset, std::span<char> buffer) const override {
        if (offset > bytes_.size() || buffer.size() > bytes_.size() - offset) throw FormatError("the end of the disk");
        std::copy_n(bytes_.data() + offset, buffer.size(), buffer.data());
    }

  private:
    std::string bytes_;
};

std::string content(const Volume& volume, const VolumeEntry& entry) {
    const auto source = volume.open(entry);
    return readAll(*source, std::size_t{1} << 30, "test");
}

const std::string decmpfs("fpmc\x09\0\0\0\x05\0\0\0\0\0\0\0\xccplain", 22);

/// Inodes from 16 on: Folder, Folder/data, Folder/large, compressed, file-one, file-two, link.
const ContainerItems items{
    {"Folder", {.mode = 0040555}},
    {"Folder/data", {.mode = 0104755, .data = "twelve bytes", .attributes = {{"user", "value"}, {"empty", ""}}}},
    {"Folder/large",
     {.data = std::string(4096, 'a') + std::string(9000, '\0') + std::string(5000, 'b'),
      .attributes = {{"com.apple.ResourceFork", std::string(10000, 'r')}}}},
    {"compressed",
     {.attributes = {{"com.apple.decmpfs", decmpfs},
                     {"com.apple.ResourceFork", "none"},
                     {"com.apple.system.Security", "hidden"},
                     {"kept", "1"}},
      .flags = 0x20}},
    {"file-one", {.data = "1"}},
    {"file-two", {.data = "2"}},
    {"hard", {.linkOf = 17}},
    {"link", {.mode = 0120755, .data = "/Applications"}},
};

TEST(ApfsVolume, isReadWhole) {
    for (const bool hasHashedNames : {true, false}) {
        const MemoryDisk disk(testContainer(items, hasHashedNames));
        const Apfs::Volume volume(disk);
        EXPECT_EQ(volume.name(), "Made");
        ASSERT_EQ(volume.entries().size(), items.size() + 1);
        EXPECT_EQ(volume.entries()[0].path, ".");
        for (std::size_t index = 1; index < volume.entries().size(); ++index) {
            const VolumeEntry& entry = volume.entries()[index];
            auto [path, item] = *std::next(items.begin(), static_cast<std::ptrdiff_t>(index) - 1);
            if (item.linkOf != 0) item = items.at("Folder/data");
            const bool isCompressed = item.flags != 0;
            if (isCompressed) {
                item.data = "plain";
                item.attributes = {{"kept", "1"}};
            }
            EXPECT_EQ(entry.path, path);
            EXPECT_EQ(entry.mode, item.mode) << path;
            EXPECT_EQ(entry.size, item.data.size()) << path;
            EXPECT_EQ(entry.owner, 501U);
            EXPECT_EQ(entry.group, 20U);
            EXPECT_EQ(entry.modified.tv_sec, 1'700'000'000);
            EXPECT_EQ(entry.modified.tv_nsec, 123'456'789);
            EXPECT_EQ(volume.attributes(entry), item.attributes) << path;
            if (S_ISLNK(entry.mode)) {
                EXPECT_EQ(entry.linkTarget, item.data);
            }
            if (S_ISREG(entry.mode)) {
                EXPECT_EQ(content(volume, entry), item.data) << path;
            }
        }
    }
}

std::string problem(std::string container) {
    try {
        const MemoryDisk disk(std::move(container));
        const Apfs::Volume volume(disk);
        for (const VolumeEntry& entry : volume.entries()) {
            volume.attributes(entry);
            if (S_ISREG(entry.mode)) content(volume, entry);
        }
        return "";
    } catch (const FormatError& error) {
        return error.what();
    }
}

std::string eight(std::uint64_t value) {
    std::string bytes;
    for (int index = 0; index < 8; ++index) bytes += static_cast<char>(value >> (8 * index));
    return bytes;
}

TEST(ApfsVolume, isRefusedWhenDamaged) {
    constexpr std::size_t lastMapValue = 4096 - 40 - 16;
    const auto field = [](std::size_t block, std::size_t offset, std::size_t width, std::uint64_t value) {
        return [=](std::string& container) { setField(container, block, offset, width, value); };
    };
    const auto text = [](const std::string& found, const std::string& other) {
        return [=](std::string& container) { replaceInLeaves(container, found, other); };
    };
    const auto bit = [](std::size_t block) {
        return [=](std::string& container) { container[block * 4096 + 2000] ^= 1; };
    };
    const struct {
        const char* name;
        std::function<void(std::string&)> damage;
        const char* problem;
    } cases[] = {
        {"nothing", [](std::string&) {}, ""},
        {"another kind of disk", field(0, 32, 4, 0), "expected a container's superblock"},
        {"blocks of 4 GiB", field(0, 36, 4, 0x80000000), "expected blocks of"},
        {"4 GiB of checkpoints", field(0, 104, 4, 0x7FFFFFFF), "blocks of checkpoints"},
        {"scattered checkpoints", field(0, 104, 4, 0x80000002), "not supported"},
        {"checkpoints past the end", field(0, 112, 8, ~std::uint64_t{0}), "expected a block below"},
        {"block 0", bit(0), "checksum"},
        {"newest checkpoint: the one before counts", bit(newestCheckpoint), "expected an object of type"},
        {"map of the container", bit(containerMap), "checksum"},
        {"tree of that map", bit(containerMapTree), "checksum"},
        {"superblock of the volume", bit(volumeBlock), "checksum"},
        {"map of the volume", bit(volumeMap), "checksum"},
        {"tree of that", bit(volumeMapTree), "checksum"},
        {"root of the file tree", bit(fileTreeRoot), "checksum"},
        {"leaf of the file tree", bit(firstLeaf), "checksum"},
        {"Fusion", field(newestCheckpoint, 64, 8, 0x102), "Fusion"},
        {"4 GiB of volumes", field(newestCheckpoint, 180, 4, 0xFFFFFFFF), "at most 100 volumes"},
        {"encrypted", field(volumeBlock, 264, 8, 0), "\"Made\" is encrypted"},
        {"sealed", field(volumeBlock, 56, 8, 0x21), "\"Made\" is sealed"},
        {"a system's volume only", field(volumeBlock, 964, 2, 4), "no volume but"},
        {"a deleted volume", field(containerMapTree, lastMapValue, 4, 1), "not in its map"},
        {"4 GiB of records", field(volumeMapTree, 36, 4, 0xFFFFFFFF), "less room"},
        {"4 GiB of children", field(fileTreeRoot, 36, 4, 0xFFFFFFFF), "less room"},
        {"a table that is too long", field(firstLeaf, 42, 2, 0xFFFF), "less room"},
        {"a loop in the map",
         [](std::string& container) {
             setField(container, volumeMapTree, lastMapValue, 8, volumeMapTree);
             setField(container, volumeMapTree, 32, 4, 0x10005);
         },
         "one node twice"},
        {"a loop in the file tree", field(fileTreeRoot, 4096 - 40 - 8, 8, 1000), "one node twice"},
        {"a leaf twice", field(fileTreeRoot, 4096 - 40 - 8, 8, leafIdentifier + 1), "one node twice"},
        {"levels without end", field(fileTreeRoot, 34, 2, 0xFFFF), "levels"},
        {"leaves out of level", field(fileTreeRoot, 34, 2, 5), "expected a node of level"},
        {"a key past its node", field(firstLeaf, 56, 2, 0xFFFF), "key passes"},
        {"a value past its node", field(firstLeaf, 60, 2, 0xFFFF), "value passes"},
        {"a name with a slash", text("file-one", "file/one"), "expected the name of a file"},
        {"a name with a NUL", text("file-one", std::string("file\0one", 8)), "with its NUL"},
        {"a name not in UTF-8",
         text("file-one", "file\xff"
                          "one"),
         "UTF-8"},
        {"two names", text("file-one", "file-two"), "two files of one folder"},
        {"a name of nothing", text(eight(20) + std::string(10, '\0'), eight(77) + std::string(10, '\0')), "not there"},
        {"an inode without a name", text(eight(20) + std::string(10, '\0'), eight(21) + std::string(10, '\0')),
         "nothing names the inode 20"},
        {"a folder in itself", text(eight(17) + std::string(10, '\0'), eight(16) + std::string(10, '\0')),
         "in two places"},
        {"entries of no folder", text(eight(std::uint64_t{9} << 60 | 3), eight(std::uint64_t{9} << 60 | 4)),
         "no folder leads to"},
        {"an extent past the end", text(eight(4096) + eight(127), eight(4096) + eight(128)), "passes the end"},
        {"an extent of 2^55 bytes", text(eight(4096) + eight(127), eight(std::uint64_t{1} << 55) + eight(127)),
         "passes the end"},
        {"a file of 2^63 bytes", text(eight(12) + eight(0), eight(std::uint64_t{1} << 63) + eight(0)), "8 EiB"},
        {"an attribute of 1 GiB", text(eight(10000) + eight(0), eight(1 << 30) + eight(0)), "more than 64 MiB"},
    };
    const std::string sound = testContainer(items);
    for (const auto& each : cases) {
        std::string container = sound;
        each.damage(container);
        const std::string found = problem(std::move(container));
        EXPECT_TRUE(found.find(each.problem) != std::string::npos && found.empty() == (*each.problem == '\0'))
            << each.name << ": " << found;
    }
}

/// The second volume stands where the map of the first did, and shares its trees.
TEST(ApfsVolume, isTheFirstOutsideASystem) {
    std::string container = testContainer(items);
    constexpr std::size_t copy = firstData - 1;
    container.replace(copy * 4096, 4096, container.substr(volumeBlock * 4096, 4096));
    setField(container, copy, 8, 8, 901);
    setField(container, copy, 704, 4, 0x646E3253);
    setField(container, newestCheckpoint, 192, 8, 901);
    setField(container, containerMapTree, 4096 - 40 - 24, 8, copy);
    EXPECT_EQ(Apfs::Volume(MemoryDisk(container)).name(), "Made");
    setField(container, volumeBlock, 964, 2, 1);
    EXPECT_EQ(Apfs::Volume(MemoryDisk(container)).name(), "S2nd");
}

} // namespace
} // namespace corvane
