#include "Platform/Formats/BigEndian.hpp"
#include "Platform/Formats/EntryName.hpp"
#include "Platform/Formats/ExtendedAttributes/AppleDouble.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/HfsPlus/Volume.hpp"
#include "Tests/Platform/Formats/CompressedFile/TestCompression.hpp"
#include "Tests/Platform/Formats/HfsPlus/TestFeatures.hpp"
#include "Tests/Platform/Formats/HfsPlus/TestVolume.hpp"
#include "Tests/Platform/Formats/MemoryAccess.hpp"
#include "Tests/TestSupport.hpp"

#include <sys/stat.h>

#include <algorithm>

namespace corvane::HfsPlus {
namespace {

using TestSupport::MemoryAccess;
using TestSupport::everyFeature;
using TestSupport::TestFeatures;
using TestSupport::TestItem;
using TestSupport::TestTree;
using TestSupport::testVolume;
using TestSupport::TestVolumeOptions;

void compare(const Volume& volume, const VolumeEntry& entry, const TestItem& expected) {
    SCOPED_TRACE(entry.path);
    EXPECT_EQ(entry.mode, expected.mode);
    EXPECT_EQ(entry.owner, expected.owner);
    EXPECT_EQ(entry.group, expected.group);
    EXPECT_EQ(entry.modified.tv_sec, static_cast<std::int64_t>(expected.modified));
    EXPECT_EQ(entry.size, expected.data.size());
    EXPECT_EQ(entry.linkTarget, S_ISLNK(expected.mode) ? expected.data : "");
    std::map<std::string, std::string> attributes = expected.attributes;
    if (!expected.resourceFork.empty()) attributes[ExtendedAttributes::resourceFork] = expected.resourceFork;
    EXPECT_TRUE(volume.attributes(entry) == attributes);
    if (!S_ISREG(expected.mode)) return;
    EXPECT_TRUE(readAll(*volume.open(entry), std::size_t{1} << 30, "test") == expected.data);
}

void compare(const Volume& volume, const TestTree& expected) {
    EXPECT_EQ(volume.entries().size(), expected.size());
    EXPECT_EQ(volume.entries().front().path, ".");
    for (const VolumeEntry& each : volume.entries()) {
        const auto found = expected.find(each.path);
        found == expected.end() ? ADD_FAILURE() << each.path : compare(volume, each, found->second);
    }
}

/// A volume of the older kind round another, of blocks of 1 KiB that begin at sector 5.
std::string wrapped(const std::string& inner) {
    std::string bytes(5 * 512 + 3 * 1024, '\0');
    const auto put = [&](std::size_t at, const std::string& field) { bytes.replace(1024 + at, field.size(), field); };
    put(0, "BD");
    put(20, std::string("\0\0\4\0", 4));
    put(28, std::string("\0\5", 2));
    put(124, std::string("H+\0\3", 4));
    return bytes + inner;
}

TEST(HfsPlusVolume, showsWhatWasPutIn) {
    const TestFeatures made = everyFeature();
    const std::string first = testVolume(made.stored);
    for (const auto& [name, disk] : std::map<std::string, std::string>{
             {"plain", first},
             {"wrapped", wrapped(first)},
             {"small blocks", testVolume(made.stored, {.blockSize = 512, .nodeSize = 2048, .isCaseSensitive = true})},
             {"large blocks", testVolume(made.stored, {.blockSize = 65536, .nodeSize = 8192})}}) {
        SCOPED_TRACE(name);
        const MemoryAccess access(disk);
        EXPECT_TRUE(Volume::isRecognized(access));
        const Volume volume(access);
        EXPECT_EQ(volume.name(), "Test");
        compare(volume, made.plain);
    }
    EXPECT_FALSE(Volume::isRecognized(MemoryAccess(std::string(4096, '\0'))));
}

TEST(HfsPlusVolume, keepsTheOrderAndTheNumbersOfNames) {
    const MemoryAccess disk(testVolume(everyFeature().stored));
    const Volume volume(disk);
    std::map<std::string, std::uint64_t> numbers;
    for (const VolumeEntry& each : volume.entries()) {
        const std::size_t slash = each.path.rfind('/');
        EXPECT_TRUE(slash == std::string::npos || numbers.contains(each.path.substr(0, slash))) << each.path;
        numbers[each.path] = each.number;
    }
    EXPECT_EQ(numbers.at("Links/file"), numbers.at("third"));
    EXPECT_EQ(numbers.at("Links/file"), numbers.at("Links/second"));
    EXPECT_NE(numbers.at("Links/file"), numbers.at("empty"));
}

TEST(HfsPlusVolume, hidesTheJournalOfAJournaledVolumeOnly) {
    const TestTree tree{{".journal", {}}, {".journal_info_block", {}}, {"Folder/.journal", {}}};
    for (const bool isJournaled : {true, false}) {
        const MemoryAccess disk(testVolume(tree, {.isJournaled = isJournaled}));
        EXPECT_EQ(Volume(disk).entries().size(), isJournaled ? 3u : 5u);
    }
}

std::string errorOf(std::string disk) {
    try {
        const MemoryAccess access(std::move(disk));
        const Volume volume(access);
        for (const VolumeEntry& each : volume.entries()) {
            volume.attributes(each);
            if (S_ISREG(each.mode)) readAll(*volume.open(each), std::size_t{1} << 30, "test");
        }
        return "";
    } catch (const FormatError& error) {
        return error.what();
    }
}

std::string big(std::uint64_t value, std::size_t width) {
    std::string bytes;
    appendBigEndian(bytes, value, width);
    return bytes;
}

/// A volume whose parts can be found again.
class Damage {
  public:
    Damage() : disk_(testVolume(tree(), {.nodeSize = 1024})) {}

    /// Puts bytes at an offset of the volume's header.
    std::string header(std::size_t at, const std::string& bytes) const { return changed(1024 + at, bytes); }
    /// Puts bytes at an offset of a special file, whose record stands in the header.
    std::string file(std::size_t record, std::size_t at, const std::string& bytes) const {
        return changed(4096 * number(1024 + record + 16) + at, bytes);
    }
    /// Puts bytes behind the first place where a record of the catalog has these.
    std::string behind(const std::string& found, std::size_t at, const std::string& bytes) const {
        return changed(disk_.find(found) + found.size() + at, bytes);
    }
    std::uint32_t number(std::size_t at) const {
        std::uint32_t value = 0;
        for (const char each : disk_.substr(at, 4)) value = (value << 8) | static_cast<unsigned char>(each);
        return value;
    }
    const std::string& disk() const { return disk_; }

  private:
    static TestTree tree() {
        TestTree tree{{"one", {.data = TestSupport::testText(9000)}}, {"two", {.data = TestSupport::testText(9000), .extents = 2}}, {"Folder/in", {}}};
        for (int index = 0; index < 20; ++index) tree["more" + std::to_string(index)] = {};
        tree["scattered"] = {.data = TestSupport::testText(40 * 4096), .extents = 12};
        tree["two"].attributes = {{"value", "v"}, {"long", TestSupport::testText(4096)}};
        return tree;
    }

    std::string changed(std::size_t at, const std::string& bytes) const {
        std::string disk = disk_;
        return disk.replace(at, bytes.size(), bytes);
    }

    std::string disk_;
};

/// A name as a key has it.
std::string key(const std::string& name) {
    std::string units = big(name.size(), 2);
    for (const char each : name) units += {'\0', each};
    return units;
}

TEST(HfsPlusVolume, refusesDamage) {
    const Damage damage;
    constexpr std::size_t extents = 192;
    constexpr std::size_t catalog = 272;
    constexpr std::size_t attributes = 352;
    constexpr std::size_t node = 1024;
    // Fields of a record behind its key.
    constexpr std::size_t itemNumber = 8;
    constexpr std::size_t mode = 42;
    constexpr std::size_t dataSize = 88;
    constexpr std::size_t dataBlocks = 100;
    constexpr std::size_t dataStart = 104;
    const std::string all(4, '\xFF');
    const std::string one = key("one");
    const std::string two = key("two");
    struct Damaged {
        const char* name;
        std::string disk;
        const char* problem;
    };
    const std::vector<Damaged> cases{
        {"nothing", damage.disk(), ""},
        {"short", damage.disk().substr(0, 1400), "beyond the end"},
        {"signature", damage.header(0, "HZ"), "expected the signature H+ or HX, found \"HZ\""},
        {"version", damage.header(2, big(6, 2)), "expected the version 4 or 5, found 6"},
        {"older kind", damage.header(0, "BD"), "older kind (HFS) is not supported"},
        {"block size", damage.header(40, big(3000, 4)), "power of two from 512 on, found 3000"},
        {"block size of 0", damage.header(40, big(0, 4)), "power of two from 512 on, found 0"},
        {"blocks", damage.header(44, big(3, 4)), "expected blocks below 3"},
        {"catalog beyond", damage.header(catalog + 16, all), "from 4294967295 on"},
        {"catalog blocks", damage.header(catalog + 20, all), "found 4294967295 from"},
        {"catalog size", damage.header(catalog, all), "bytes in its blocks"},
        {"no catalog", damage.header(catalog, std::string(80, '\0')), "expected a root folder"},
        {"no header node", damage.file(catalog, 8, "\2"), "expected the header of a tree, found a node of kind 2"},
        {"node size", damage.file(catalog, 32, big(1000, 2)), "nodes of a power of two"},
        {"record count", damage.file(catalog, 20, all), "the number of records to be 4294967295"},
        {"last leaf", damage.file(catalog, 28, big(77, 4)), "the last leaf to be 77"},
        {"first leaf beyond", damage.file(catalog, 24, all), "found the end"},
        {"first leaf", damage.file(catalog, 24, big(2, 4)), "the node before node 2 to be 0, found 1"},
        {"loop of leaves", damage.file(catalog, 2 * node, big(1, 4)), "the node before node 1 to be 2, found 0"},
        {"leaf that is its own next", damage.file(catalog, node, big(1, 4)), "the node before node 1 to be 1, found 0"},
        {"leaf kind", damage.file(catalog, node + 8, std::string(1, '\0')), "the kind of node 1 to be 255, found 0"},
        {"records of a leaf", damage.file(catalog, node + 10, all.substr(2)), "expected fewer records"},
        {"record offset", damage.file(catalog, 2 * node - 4, all.substr(2)), "records one after another"},
        {"overlapping records", damage.file(catalog, 2 * node - 4, big(4, 2)), "records one after another"},
        {"key length", damage.file(catalog, node + 14, all.substr(2)), "expected 65535 more bytes"},
        {"name length", damage.file(catalog, node + 20, all.substr(2)), "expected 2 more bytes"},
        {"record type", damage.behind(one, 0, big(9, 2)), "a record of type 1 to 4, found 9"},
        {"number", damage.behind(one, itemNumber, big(2, 4)), "found two items of number 2"},
        {"mode", damage.behind(one, mode, big(040755, 2)), "found the mode of a folder at a file"},
        {"folder's mode", damage.behind(key("Folder"), mode, big(0100644, 2)), "expected the mode of a folder"},
        {"lost folder", damage.behind(key("Folder"), itemNumber, big(99, 4)), "expected \"in\" below the root"},
        {"data size", damage.behind(one, dataSize, all), "bytes in its blocks"},
        {"data blocks", damage.behind(one, dataBlocks, all), "expected 4294967295 blocks of file"},
        {"data beyond", damage.behind(one, dataStart, all), "expected blocks below"},
        {"data length", damage.behind(one, dataStart + 4, all), "found 4294967295 from"},
        {"data of a tree", damage.behind(one, dataStart, big(damage.number(1024 + catalog + 16), 4)), "in two places"},
        {"overlap in a file",
         damage.behind(two, dataStart + 8, big(damage.number(damage.disk().find(two) + two.size() + dataStart), 4)),
         "in two places"},
        {"further extents", damage.file(extents, node + 20, all), "blocks of file"},
        {"attribute type", damage.file(attributes, node + 36, big(0x40, 4)),
         "attribute of type 16, 32 or 48, found 64"},
        {"attribute blocks", damage.file(attributes, node + 36 + 20, all), "blocks of attribute long, found"},
        {"attribute extents", damage.file(attributes, node + 36, big(0x30, 4)),
         "expected the blocks of attribute long"}};
    for (const Damaged& each : cases) {
        const std::string error = errorOf(each.disk);
        const bool isRight = *each.problem == '\0' ? error.empty() : error.find(each.problem) != std::string::npos;
        EXPECT_TRUE(isRight) << each.name << ": " << error;
    }
}

TEST(HfsPlusVolume, refusesNamesAndShapes) {
    // Wherever a key or a thread has the name, its first units become others.
    const auto renamed = [](std::string disk, const std::string& name, const std::string& units) {
        const std::string from = key(name);
        for (std::size_t at = disk.find(from); at != std::string::npos; at = disk.find(from, at + 1)) {
            disk.replace(at + 2, units.size(), units);
        }
        return disk;
    };
    const auto made = [](const TestTree& tree) { return testVolume(tree); };
    TestTree deep;
    std::string path = "d";
    for (std::size_t depth = 0; depth < EntryName::depthLimit; ++depth) path += "/d";
    deep[path] = {};
    std::string han;
    for (int index = 0; index < 90; ++index) han += "\xE6\xBC\xA2";
    TestItem link{.mode = 0100444};
    link.finderInfo = "hlnkhfs+" + std::string(24, '\0');
    TestItem folderLink = link;
    folderLink.finderInfo.replace(0, 8, "fdrpMACS");
    const std::string pair = made({{"one", {}}, {"two", {}}});
    const std::string dots = std::string("\0.\0.", 4);
    struct Damaged {
        const char* name;
        std::string disk;
        const char* problem;
    };
    const std::vector<Damaged> cases{
        {"same name", renamed(pair, "two", key("one").substr(2)), "found two items named \"one\""},
        {"parent", renamed(made({{"ab", {}}}), "ab", dots), "expected the name of a file, found \"..\""},
        {"zero", renamed(pair, "two", std::string(2, '\0')), "expected the name of a file"},
        {"half a pair", renamed(pair, "two", "\xDC\x01"), "expected a whole character"},
        {"another half", renamed(pair, "two", "\xD8\x01"), "expected the second half of a character"},
        {"long name", made({{han, {}}}), "expected a name of at most 255 bytes, found one of 270"},
        {"deep", made(deep), "expected at most 512 nested folders"},
        {"link to nothing", made({{"link", link}}), "the item of hard link \"link\" as iNode1, found none"},
        {"folder link", made({{"link", folderLink}}), "the item of hard link \"link\" as dir_1, found none"},
        {"circle", made({{"A/b", {}}, {"A/C/again", {.linkOf = "A"}}}), "within itself"},
        {"empty link", made({{"link", {.mode = 0120755}}}), "expected a link of 1 to 4096 bytes"},
        {"long link", made({{"link", {.mode = 0120755, .data = TestSupport::testText(5000)}}}), "found one of 5000"},
        {"zero in a link", made({{"link", {.mode = 0120755, .data = std::string(2, '\0')}}}), "found a zero byte"},
        {"kind 13",
         made({{"file",
                [] {
                    TestItem item = TestSupport::compressedItem(3, "text");
                    item.attributes["com.apple.decmpfs"][4] = 13;
                    return item;
                }()}}),
         "compression of kind 13 is not supported"}};
    for (const Damaged& each : cases) {
        EXPECT_NE(errorOf(each.disk).find(each.problem), std::string::npos) << each.name << ": " << errorOf(each.disk);
    }
}

TEST(HfsPlusVolume, refusesFoldersInEachOther) {
    std::string disk = testVolume({{"A/x", {}}, {"B/y", {}}});
    const auto number = [&](const std::string& name) {
        return disk.substr(disk.find(key(name)) + key(name).size() + 8, 4);
    };
    const std::string a = number("A");
    const std::string b = number("B");
    disk.replace(disk.find(key("A")) - 4, 4, b);
    disk.replace(disk.find(key("B")) - 4, 4, a);
    EXPECT_NE(errorOf(disk).find("below the root, found it in folder"), std::string::npos) << errorOf(disk);
}

TEST(HfsPlusVolume, readsARealOne) {
    CORVANE_REQUIRE_SAMPLES();
    const FileAccess disk(*TestSupport::samples() / "dmg/dfvfs_hfsplus.raw");
    const Volume volume(disk);
    EXPECT_EQ(volume.name(), "hfsplus_test");
    std::map<std::string, const VolumeEntry*> entries;
    for (const VolumeEntry& each : volume.entries()) entries[each.path] = &each;
    ASSERT_EQ(entries.size(), 11u);
    EXPECT_EQ(entries.at("a_link")->linkTarget, "a_directory/another_file");
    EXPECT_EQ(entries.at("a_link")->modified.tv_sec, 1642144782);
    EXPECT_EQ(entries.at(".fseventsd")->mode, 040700u);
    EXPECT_EQ(volume.attributes(*entries.at("a_directory/a_file")).count("myxattr"), 1u);
    EXPECT_EQ(volume.attributes(*entries.at("a_directory/a_resourcefork")).at(ExtendedAttributes::resourceFork),
              "My resource fork\n");
    EXPECT_EQ(readAll(*volume.open(*entries.at("a_directory/another_file")), 100, "test"), "This is another file.\n");
}

} // namespace
} // namespace corvane::HfsPlus
