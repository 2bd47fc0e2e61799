#include "Platform/Formats/Cpio/Extraction.hpp"
#include "Platform/Formats/Cpio/FolderArchive.hpp"
#include "Platform/Formats/Cpio/Reader.hpp"
#include "Platform/Formats/Cpio/Writer.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Support/CancellationError.hpp"
#include "Support/FileManager.hpp"
#include "Tests/TestSupport.hpp"

#include <sys/stat.h>

namespace corvane::Cpio {
namespace {

using TestSupport::Sandbox;

/// A tree with a program, a link, and two names of one file.
FileURL makeTree(const Sandbox& sandbox) {
    const FileURL tree = sandbox / "tree";
    sandbox.writeScript("tree/bin/run", "exit 0\n");
    sandbox.write("tree/notes", std::string(700, 'n'));
    std::filesystem::create_hard_link(tree / "notes", tree / "other");
    std::filesystem::create_symlink("../bin/run", tree / "bin/latest");
    FileManager::createDirectory(tree / "closed");
    ::chmod((tree / "closed").c_str(), 0555);
    return tree;
}

std::string archivedBy(const std::vector<std::string>& command, const FileURL& tree) {
    const std::string names = ".\nbin\nbin/run\nbin/latest\nnotes\nother\nclosed\n";
    return TestSupport::run(command, {.folder = tree, .input = names}).output;
}

std::string folderArchive(const FileURL& folder, std::optional<std::uint64_t> latestTime = {}) {
    std::string bytes;
    archiveFolder(FolderTree(folder, {}), latestTime, {}, [&](std::string_view piece) { bytes += piece; });
    return bytes;
}

void extractTo(const FileURL& folder, const std::string& bytes) {
    FileManager::createDirectory(folder);
    MemorySource source(bytes);
    Reader reader(source);
    ExtractionFolder output(folder, {});
    extract(reader, output, "root");
    output.finish();
}

std::vector<Entry> listed(const std::string& bytes) {
    MemorySource source(bytes);
    Reader reader(source);
    std::vector<Entry> entries;
    while (auto entry = reader.next()) entries.push_back(*std::move(entry));
    return entries;
}

std::string errorOf(const std::string& bytes) {
    try {
        listed(bytes);
        return "";
    } catch (const FormatError& error) {
        return error.what();
    }
}

TEST(CpioReader, extractsWhatOtherProgramsArchived) {
    const Sandbox sandbox;
    const FileURL tree = makeTree(sandbox);
    const std::vector<std::pair<std::string, std::string>> archives{
        {"odc", archivedBy({"cpio", "-o", "-H", "odc", "--quiet"}, tree)},
        {"newc", archivedBy({"cpio", "-o", "-H", "newc", "--quiet"}, tree)},
        {"crc", archivedBy({"cpio", "-o", "-H", "crc", "--quiet"}, tree)},
        {"bsdtar", archivedBy({"bsdtar", "-c", "-n", "--format", "odc", "-T", "-", "-f", "-"}, tree)}};
    for (const auto& [name, bytes] : archives) {
        SCOPED_TRACE(name);
        extractTo(sandbox / name, bytes);
        const FileURL root = sandbox / name / "root";
        const auto difference = TestSupport::run({"diff", "-r", "--no-dereference", tree, root});
        EXPECT_EQ(difference.status, 0) << difference.output;
        EXPECT_TRUE(std::filesystem::equivalent(root / "notes", root / "other"));
        EXPECT_EQ(std::filesystem::status(root / "bin/run").permissions(), std::filesystem::perms(0755));
        EXPECT_EQ(std::filesystem::status(root / "closed").permissions(), std::filesystem::perms(0555));
        for (const char* path : {".", "bin", "notes", "closed"}) {
            struct stat before {};
            struct stat after {};
            ::stat((tree / path).c_str(), &before);
            ::stat((root / path).c_str(), &after);
            EXPECT_EQ(before.st_mtime, after.st_mtime) << path;
        }
    }
}

/// An entry of the octal form with everything but these fields ordinary.
std::string entry(const std::string& name, const std::string& data, const std::string& mode = "100644",
                  const std::string& links = "000001", const std::string& inode = "000001") {
    char sizes[32];
    std::snprintf(sizes, sizeof sizes, "%06zo%011zo", name.size() + 1, data.size());
    return "070707000000" + inode + mode + "000000000000" + links + "00000000000000000" + sizes + name +
           std::string(1, '\0') + data;
}

const std::string trailer = entry("TRAILER!!!", "");

TEST(CpioReader, refusesDamage) {
    const std::string file = entry("./a", "data");
    struct Case {
        std::string bytes;
        std::string problem;
    };
    const std::vector<Case> cases{
        {file + trailer + std::string(700, '\0'), ""},
        {"", "expected 6 more bytes, found 0"},
        {file, "expected 6 more bytes, found 0"},
        {file.substr(0, file.size() - 1), "expected 1 more bytes of data"},
        {file + "0" + trailer, "expected the magic of an entry, found \"007070\""},
        {file + trailer + "x", "expected zeros after the last entry"},
        {"070708" + file.substr(6) + trailer, "cpio: offset 0: expected the magic"},
        {file.substr(0, 6) + "00000x" + file.substr(12) + trailer, "base 8"},
        {entry("", "") + trailer, ""},
        {entry("/etc/a", "") + trailer, "found \"\""},
        {entry("../a", "") + trailer, "found \"..\""},
        {entry("a/../../b", "") + trailer, "found \"..\""},
        {entry("a//b", "") + trailer, "found \"\""},
        {entry(std::string("a\0b", 3), "") + trailer, "only NUL"},
        {entry(std::string(5000, 'a'), "") + trailer, "found a length of 5001"},
        {entry(std::string(256, 'a'), "") + trailer, "255 bytes"},
        {entry("a", "data", "040755") + trailer, "folder without data"},
        {entry("a", "", "120755") + trailer, "target of a link"},
        {entry("a", std::string("x\0y", 3), "120755") + trailer, "without NUL"},
        {entry("a", std::string(4096, 'x'), "120755") + trailer, "found 4096 bytes"},
    };
    for (const Case& each : cases) {
        const std::string message = errorOf(each.bytes);
        EXPECT_EQ(message.empty(), each.problem.empty()) << each.bytes << message;
        EXPECT_NE(message.find(each.problem), std::string::npos) << each.bytes << "\n" << message;
    }
    std::string checked = TestSupport::read(TestSupport::source("Fuzz/Seeds/Cpio/crc"));
    EXPECT_EQ(errorOf(checked), "");
    checked[checked.find("nnnn")] = 'm';
    MemorySource source(checked);
    Reader reader(source);
    EXPECT_THROW(while (reader.next()) readAll(reader, 10000, "test"), FormatError);
}

TEST(CpioExtraction, keepsNamesOfOneFileTogetherOnlyWhenTheyAgree) {
    const Sandbox sandbox;
    const auto links = [](const std::string& first, const std::string& second) {
        return entry("a", first, "100644", "000002") + entry("b", second, "100644", "000002") + trailer;
    };
    extractTo(sandbox / "equal", links("same", "same"));
    EXPECT_TRUE(std::filesystem::equivalent(sandbox / "equal/root/a", sandbox / "equal/root/b"));
    extractTo(sandbox / "late", links("", "late"));
    EXPECT_EQ(TestSupport::read(sandbox / "late/root/a"), "late");
    extractTo(sandbox / "empty", links("", ""));
    EXPECT_EQ(TestSupport::read(sandbox / "empty/root/b"), "");
    EXPECT_THROW(extractTo(sandbox / "different", links("same", "tame")), FormatError);
    EXPECT_THROW(extractTo(sandbox / "longer", links("same", "same!")), FormatError);
    EXPECT_THROW(extractTo(sandbox / "device", entry("a", "", "020644") + trailer), FormatError);
}

TEST(CpioFolderArchive, isReadByOtherPrograms) {
    const Sandbox sandbox;
    const FileURL tree = makeTree(sandbox);
    sandbox.write("archive", folderArchive(tree));
    for (const char* command : {"cpio -idm --quiet < ../archive", "bsdtar -xpf ../archive"}) {
        const FileURL output = sandbox / (std::string("by ") + command[0]);
        FileManager::createDirectory(output);
        EXPECT_EQ(TestSupport::run({"sh", "-c", command}, {.folder = output}).status, 0) << command;
        const auto difference = TestSupport::run({"diff", "-r", "--no-dereference", tree, output});
        EXPECT_EQ(difference.status, 0) << difference.output;
        EXPECT_EQ(std::filesystem::status(output / "closed").permissions(), std::filesystem::perms(0555));
    }
}

TEST(CpioFolderArchive, writesTheFieldsOfPackageTools) {
    const Sandbox sandbox;
    for (const char* name : {"b/inner", "._b", "a", "._a", "._stray"}) sandbox.write(std::string("tree/") + name, name);
    ::chmod((sandbox / "tree/._a").c_str(), 0600);
    std::filesystem::create_symlink("b", sandbox / "tree/c");
    const std::string bytes = folderArchive(sandbox / "tree", 5);
    EXPECT_EQ(bytes.substr(0, 12), "070707000000");
    EXPECT_EQ(bytes.size() % 512, 0U);
    EXPECT_NE(bytes.find("./._stray"), std::string::npos);
    std::vector<std::string> lines;
    for (const Entry& each : listed(bytes)) {
        EXPECT_EQ(each.modificationTime, 5U) << each.path;
        EXPECT_EQ(each.inode, lines.size());
        EXPECT_EQ(each.userID + each.groupID, 0U);
        lines.push_back(each.path + " " + std::to_string(each.linkCount));
    }
    // A companion follows what it accompanies, a folder's after all that is in it, and is no child.
    EXPECT_EQ(lines,
              (std::vector<std::string>{". 6", "._stray 1", "a 1", "._a 1", "b 3", "b/inner 1", "._b 1", "c 1"}));
    EXPECT_EQ(listed(bytes).at(3).mode, S_IFREG | 0600U);
    EXPECT_EQ(bytes, folderArchive(sandbox / "tree", 5));
}

TEST(CpioFolderArchive, keepsNamesOfOneFileTogether) {
    const Sandbox sandbox;
    sandbox.write("tree/a", "data");
    std::filesystem::create_hard_link(sandbox / "tree/a", sandbox / "tree/c");
    std::filesystem::create_hard_link(sandbox / "tree/a", sandbox / "outside");
    sandbox.write("tree/b", "data");
    std::filesystem::create_hard_link(sandbox / "tree/b", sandbox / "another name outside");
    const auto entries = listed(folderArchive(sandbox / "tree"));
    ASSERT_EQ(entries.size(), 4U);
    EXPECT_EQ(entries[1].inode, entries[3].inode);
    EXPECT_EQ(entries[1].linkCount, 2U);
    EXPECT_EQ(entries[3].size, 4U);
    EXPECT_EQ(entries[2].linkCount, 1U) << "its other name is not in the archive";
}

TEST(CpioFolderArchive, keepsEveryFileThatLooksLikeACompanion) {
    const Sandbox sandbox;
    for (const char* name : {"a", "._a", "._._a", "._._._a", "._b"}) sandbox.write(std::string("tree/") + name, name);
    FileManager::createDirectory(sandbox / "tree/c/._c");
    FileManager::createDirectory(sandbox / "tree/._c");
    std::vector<std::string> paths;
    for (const Entry& each : listed(folderArchive(sandbox / "tree"))) paths.push_back(each.path);
    EXPECT_EQ(paths, (std::vector<std::string>{".", "._._a", "._._._a", "._b", "._c", "a", "._a", "c", "c/._c"}));
}

TEST(CpioFolderArchive, noticesATreeThatChanges) {
    const Sandbox sandbox;
    const FileURL tree = sandbox / "tree";
    const std::vector<std::function<void()>> changes{[&] { sandbox.write("tree/folder/file", "longer"); },
                                                     [&] { sandbox.write("tree/folder/new", ""); },
                                                     [&] { std::filesystem::remove(tree / "folder/file"); },
                                                     [&] { ::chmod((tree / "folder/file").c_str(), 0700); },
                                                     [&] { std::filesystem::rename(tree / "folder", tree / "other"); },
                                                     [&] {
                                                         std::filesystem::remove(tree / "folder/file");
                                                         ::mkfifo((tree / "folder/file").c_str(), 0644);
                                                     }};
    for (std::size_t which = 0; which < changes.size(); ++which) {
        FileManager::removeItem(tree);
        sandbox.write("tree/folder/file", "data");
        // Long ago, so that every change gives other times.
        for (const char* path : {"folder/file", "folder", "."}) {
            std::filesystem::last_write_time(tree / path, std::filesystem::file_time_type{});
        }
        const FolderTree walked(tree, {});
        changes[which]();
        EXPECT_ANY_THROW(archiveFolder(walked, {}, {}, [](std::string_view) {})) << which;
    }
}

TEST(CpioWriter, refusesWhatItsFieldsCannotHold) {
    Writer writer([](std::string_view) {});
    EXPECT_THROW(writer.add({.path = "a", .size = std::uint64_t{1} << 33}), FormatError);
    EXPECT_THROW(writer.add({.path = "a", .userID = 01000000}), FormatError);
    MemorySource shorter("abc");
    EXPECT_THROW(writer.add({.path = "a", .size = 4}, &shorter), FormatError);
    MemorySource longer("abcde");
    EXPECT_THROW(writer.add({.path = "a", .size = 4}, &longer), FormatError);
    EXPECT_NO_THROW(writer.add({.path = "a", .inode = 01000005, .size = 07777777777}));
}

} // namespace
} // namespace corvane::Cpio
