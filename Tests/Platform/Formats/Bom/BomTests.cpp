#include "Platform/Formats/Bom/ArchitectureChecksums.hpp"
#include "Platform/Formats/Bom/Reader.hpp"
#include "Platform/Formats/Bom/Writer.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/PosixChecksum.hpp"
#include "Tests/TestSupport.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <functional>

namespace corvane::Bom {
namespace {

using TestSupport::Sandbox;

Entry directory(const std::string& path) {
    return {.path = path, .type = EntryType::directory, .mode = S_IFDIR | 0755, .modificationTime = 5, .size = 64};
}
Entry file(const std::string& path, std::uint64_t size = 3) {
    return {.path = path, .mode = S_IFREG | 0644, .groupID = 80, .size = size, .checksum = 0xFFFFFFFE};
}

std::string written(const std::vector<Entry>& entries) {
    Writer writer;
    for (const Entry& entry : entries) writer.add(entry);
    std::string bytes;
    writer.finish([&](std::string_view piece) { bytes += piece; });
    return bytes;
}

std::vector<Entry> listed(const std::string& bytes) {
    Reader reader(bytes);
    std::vector<Entry> entries;
    while (auto entry = reader.next()) entries.push_back(*std::move(entry));
    return entries;
}

std::string errorOf(const std::function<void()>& action) {
    try {
        action();
        return "";
    } catch (const FormatError& error) {
        return error.what();
    }
}

TEST(PosixChecksum, equalsThatOfCksum) {
    const Sandbox sandbox;
    std::string bytes;
    for (const std::size_t size : std::initializer_list<std::size_t>{0, 1, 15, 16, 17, 255, 256, 70001}) {
        while (bytes.size() < size) bytes += static_cast<char>(bytes.size() * 131 + bytes.size() / 7);
        const auto outcome = TestSupport::run({"cksum", sandbox.write("file", bytes)});
        PosixChecksum inPieces;
        inPieces.update(std::string_view(bytes).substr(0, size / 3));
        inPieces.update(std::string_view(bytes).substr(size / 3));
        EXPECT_EQ(std::to_string(inPieces.finish()), outcome.output.substr(0, outcome.output.find(' '))) << size;
    }
}

TEST(ArchitectureChecksums, areThoseOfTheSlicesWhateverThePieces) {
    const std::vector<MachO::Slice> found{{1, 2, 3, 40}, {3, 4, 20, 60}, {5, 6, 80, 0}};
    std::string file;
    while (file.size() < 80) file += static_cast<char>(file.size() * 7);
    std::vector<Architecture> expected;
    for (const MachO::Slice& each : found) {
        const std::string_view bytes = std::string_view(file).substr(each.offset, each.size);
        expected.push_back(
            {each.cpuType, each.cpuSubtype, static_cast<std::uint32_t>(each.size), posixChecksum(bytes)});
    }
    for (const std::size_t piece : {1u, 19u, 20u, 21u, 80u}) {
        ArchitectureChecksums checksums(found);
        for (std::size_t at = 0; at < file.size(); at += piece)
            checksums.update(std::string_view(file).substr(at, piece));
        EXPECT_TRUE(checksums.finish() == expected) << piece;
    }
}

TEST(Bom, keepsEveryKindOfEntry) {
    Entry link = file("bin/latest", 6);
    link.type = EntryType::symbolicLink;
    link.mode = S_IFLNK | 0755;
    link.linkTarget = "../run";
    Entry program = file("bin/run", 900);
    program.architectures = {{0x01000007, 3, 400, 1}, {0x0100000C, 0, 500, 2}};
    Entry companion = {.path = "bin/._run", .mode = S_IFREG | 0755, .isCompanion = true};
    Entry device = file("null", 0);
    device.type = EntryType::device;
    device.mode = S_IFCHR | 0666;
    const Entry large = file("large", (std::uint64_t{5} << 32) + 7);
    const std::string bytes = written({directory("."), directory("bin"), companion, program, link, device, large,
                                       file("a b"), file("\xFF\nx"), directory("bin.d"), file("bin.d/y")});
    // By the number of the folder, then by name.
    const std::vector<Entry> expected{directory("."), file("a b"), directory("bin"), directory("bin.d"),
                                      large,          device,      file("\xFF\nx"),  companion,
                                      link,           program,     file("bin.d/y")};
    EXPECT_TRUE(listed(bytes) == expected);
}

/// 300 leaves, so the branches above them need a branch, too.
TEST(Bom, keepsManyEntries) {
    constexpr std::size_t count = 76800;
    Writer writer;
    writer.add(directory("."));
    for (std::size_t index = 1; index < count; ++index) {
        const std::string name = std::to_string(1000000 + index);
        writer.add(index % 100 == 0 ? directory(name) : file(name));
    }
    std::string bytes;
    writer.finish([&](std::string_view piece) { bytes += piece; });
    const std::vector<Entry> entries = listed(bytes);
    ASSERT_EQ(entries.size(), count);
    for (std::size_t index = 1; index < count; ++index) ASSERT_EQ(entries[index].path, std::to_string(1000000 + index));

    // A search from the top must end at the same leaves as the way along them: the rightmost path, as an example.
    const Store store(bytes);
    ByteCursor tree = store.block(store.variables().at("Paths"));
    tree.skip(8);
    std::uint32_t node = tree.u32BigEndian();
    for (int level = 0; level < 2; ++level) {
        ByteCursor branch = store.block(node);
        EXPECT_EQ(branch.u16BigEndian(), 0);
        branch.skip(8 + std::size_t{8} * branch.u16BigEndian());
        node = branch.u32BigEndian();
    }
    ByteCursor leaf = store.block(node);
    EXPECT_EQ(leaf.u16BigEndian(), 1);
    EXPECT_EQ(leaf.u16BigEndian(), 256);
    EXPECT_EQ(leaf.u32BigEndian(), 0u);
}

TEST(BomWriter, refusesWhatCannotBeWritten) {
    Entry many = file("a");
    many.architectures.resize(16);
    const std::vector<std::pair<std::vector<Entry>, std::string>> cases{
        {{}, "a root"},
        {{file("a")}, "the root first"},
        {{directory("."), directory(".")}, "the root first"},
        {{directory("."), file("a/b")}, "expected the folder of a/b"},
        {{directory("."), file("a"), file("a/b")}, "expected the folder of a/b"},
        {{directory("."), file("a"), file("a")}, "expected one a in a folder"},
        {{directory("."), file("../a")}, "found \"..\""},
        {{directory("."), file("/a")}, "found \"\""},
        {{directory("."), file(std::string(256, 'a'))}, "at most 255"},
        {{directory("."), many}, "15 architectures"}};
    for (const auto& [entries, problem] : cases) {
        const std::string error = errorOf([&, &entries = entries] { written(entries); });
        EXPECT_NE(error.find(problem), std::string::npos) << problem << ": " << error;
    }
}

/// Changes the numbers of a Bom one by one. Blocks are found through the table, as a reader finds them.
class Forgery {
  public:
    Forgery() : bytes_(written({directory("."), directory("a"), file("a/b")})) {}

    Forgery& number(std::size_t offset, std::uint32_t value, std::size_t width = 4) {
        std::string field;
        appendBigEndian(field, value, width);
        bytes_.replace(offset, width, field);
        return *this;
    }
    Forgery& inBlock(std::uint32_t block, std::size_t offset, std::uint32_t value, std::size_t width = 4) {
        return number(Store(bytes_).block(block).offset() + offset, value, width);
    }
    /// The place of a block in the table.
    Forgery& slot(std::uint32_t block, std::size_t offset, std::uint32_t value) {
        ByteCursor header(bytes_, "bom");
        header.skip(16);
        return number(header.u32BigEndian() + 4 + std::size_t{8} * block + offset, value);
    }
    Forgery& shortened(std::size_t size) {
        bytes_.resize(size);
        return *this;
    }
    const std::string& bytes() const { return bytes_; }

  private:
    std::string bytes_;
};

/// Blocks of the forged file: 2 and 3 the tree of paths and its leaf, 11 to 13 the record, key and identity of ".",
/// 14 to 16 those of "a", 17 to 19 those of "a/b".
TEST(BomReader, refusesDamage) {
    const std::vector<std::pair<Forgery, std::string>> cases{
        {Forgery(), ""},
        {Forgery().shortened(0), "expected 8 more bytes"},
        {Forgery().shortened(20), "more bytes"},
        {Forgery().shortened(9000), "expected the block table"},
        {Forgery().number(0, 0), "expected \"BOMStore\""},
        {Forgery().number(8, 2), "expected version 1, found 2"},
        {Forgery().number(20, 100), "expected a table of 2730 blocks"},
        {Forgery().number(16, 0xFFFFFFFF), "expected the block table"},
        {Forgery().number(24, 0xFFFFFFF0), "expected the variables"},
        {Forgery().number(28, 3), "more bytes"},
        {Forgery().slot(3, 0, 0xFFFFFF00), "expected the block 3"},
        {Forgery().slot(3, 4, 0xFFFFFF00), "expected the block 3"},
        {Forgery().slot(17, 4, 20), "more bytes"},
        {Forgery().inBlock(2, 0, 0), "expected \"tree\""},
        {Forgery().inBlock(2, 8, 0), "expected the number of a block, found 0"},
        {Forgery().inBlock(2, 8, 2730), "expected the number of a block, found 2730"},
        {Forgery().inBlock(2, 16, 2), "expected 2 entries in a tree, found more"},
        {Forgery().inBlock(2, 16, 4), "expected 4 entries in a tree, found 3"},
        {Forgery().inBlock(2, 16, 0xFFFFFFFF), "at most one entry a block"},
        {Forgery().inBlock(3, 0, 0, 2).inBlock(3, 12, 3), "levels of branches"},
        {Forgery().inBlock(3, 2, 0xFFFF, 2), "more bytes"},
        {Forgery().inBlock(3, 4, 3), "found more"},
        {Forgery().inBlock(3, 2, 0, 2).inBlock(3, 4, 3), "found a circle"},
        {Forgery().inBlock(16, 0, 3), "expected one path of the number 3"},
        {Forgery().inBlock(18, 0, 9), "expected the folder with the number 9"},
        {Forgery().inBlock(15, 0, 3), "nested folders"},
        {Forgery().inBlock(15, 0, 2), "nested folders"},
        {Forgery().inBlock(18, 4, 0x2E2E, 2).slot(18, 4, 6), "expected a zero"},
        {Forgery().inBlock(18, 4, 0x2F00, 2), "expected the name of a file, found \"/\""},
        {Forgery().inBlock(18, 4, 0, 1), "found \"\""},
        {Forgery().inBlock(17, 0, 9, 1), "expected a type from 1 to 4, found 9"},
        {Forgery().inBlock(17, 0, 3, 1).inBlock(17, 27, 9), "more bytes"},
        {Forgery().inBlock(17, 27, 1, 1).inBlock(17, 28, 16), "at most 15 architectures"},
        {Forgery().inBlock(17, 27, 1, 1).inBlock(17, 28, 15), "more bytes"}};
    for (std::size_t index = 0; index < cases.size(); ++index) {
        const std::string error = errorOf([&] { listed(cases[index].first.bytes()); });
        EXPECT_EQ(error.empty(), cases[index].second.empty()) << index << error;
        EXPECT_NE(error.find(cases[index].second), std::string::npos) << index << cases[index].second << ": " << error;
    }
}

TEST(BomReader, leavesOutOtherRoots) {
    // "a" becomes a root of its own, so "a/b" goes with it.
    EXPECT_EQ(listed(Forgery().inBlock(15, 0, 0).bytes()).size(), 1u);
}

} // namespace
} // namespace corvane::Bom
