#include "Platform/Formats/DiskImage/MountableVolume.hpp"
#include "Platform/Formats/DiskImage/VolumeExtraction.hpp"
#include "Platform/Formats/ExtendedAttributes/ExtendedAttributes.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Support/CancellationError.hpp"
#include "Support/FileManager.hpp"
#include "Tests/Platform/Formats/Apfs/TestContainer.hpp"
#include "Tests/Platform/Formats/HfsPlus/TestVolume.hpp"
#include "Tests/Platform/Formats/MemoryAccess.hpp"
#include "Tests/Platform/Formats/Udif/TestImage.hpp"
#include "Tests/TestSupport.hpp"

#include <sys/stat.h>

#include <filesystem>
#include <functional>

namespace corvane {
namespace {

using namespace TestSupport;

std::string errorOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return {};
}

void extract(const std::string& disk, const FileURL& folder, const std::stop_token& stop = {}) {
    const MemoryAccess access(disk);
    extractVolume(MountableVolume(access).volume(), folder, stop);
}

/// Everything below a folder, a line an item: path, mode, time, what it is, attributes.
std::vector<std::string> listing(const FileURL& root) {
    std::vector<std::string> lines;
    for (const auto& each : std::filesystem::recursive_directory_iterator(root)) {
        struct stat status {};
        ::lstat(each.path().c_str(), &status);
        char start[64];
        const bool isLink = each.is_symlink();
        std::snprintf(start, sizeof start, " %04o %lld.%ld", isLink ? 0U : status.st_mode & 07777U,
                      static_cast<long long>(status.st_mtim.tv_sec), status.st_mtim.tv_nsec);
        std::string line = each.path().lexically_relative(root).string();
        if (ExtendedAttributes::isCompanion(each.path())) {
            lines.push_back(line + " companion");
            continue;
        }
        line += start;
        if (isLink) line += " -> " + std::filesystem::read_symlink(each.path()).string();
        if (!isLink && each.is_regular_file()) {
            line += " " + std::to_string(status.st_nlink) + " " + TestSupport::read(each.path()).substr(0, 20);
        }
        for (const std::string& name : ExtendedAttributes::names(each.path())) {
            const std::string value = *ExtendedAttributes::value(each.path(), name);
            line += " " + name + "=" + (value.size() > 20 ? std::to_string(value.size()) : value);
        }
        lines.push_back(line);
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

/// More than any file system takes.
const std::string large(100'000, 'v');

TEST(VolumeExtraction, restoresEverythingOfAFile) {
    const std::string hfs = testVolume({
        {"closed", {.mode = 040555, .attributes = {{"of.folder", "f"}}}},
        {"closed/readable", {.mode = 0100444, .data = "r", .attributes = {{"small", "s"}, {"large", large}}}},
        {"closed/set-id", {.mode = 0106711, .data = "program", .modified = 1600000001}},
        {"closed/one", {.data = "shared", .attributes = {{"large", large}}}},
        {"closed/link", {.mode = 0120755, .data = "/Applications", .attributes = {{"of.link", "l"}}}},
        {"open/a:b", {.mode = 0100666, .data = "", .modified = 1}},
        {"open/._alone", {.data = "no companion"}},
        {"open/one", {.linkOf = "closed/one"}},
        {"open/loop", {.mode = 0120755, .data = "../open"}},
    });
    const std::string apfs = testContainer({
        {"closed", {.mode = 040555, .attributes = {{"of.folder", "f"}}}},
        {"closed/one", {.mode = 0104755, .data = "shared", .attributes = {{"large", large}}}},
        {"open", {.mode = 041777}},
        {"open/._alone", {.data = "no companion"}},
        {"open/link", {.mode = 0120755, .data = "../closed"}},
        {"open/one", {.linkOf = 17}},
    });
    const std::string ns = " 1700000000.123456789 ";
    const struct {
        const char* name;
        std::string disk;
        std::vector<std::string> lines;
    } cases[]{
        {"HFS+",
         TestImage::guidDisk(hfs),
         {"closed 0555 1700000000.0 of.folder=f", "closed/._link companion", "closed/._one companion",
          "closed/._readable companion", "closed/link 0000 1700000000.0 -> /Applications of.link=l",
          "closed/one 0644 1700000000.0 2 shared large=100000",
          "closed/readable 0444 1700000000.0 1 r large=100000 small=s", "closed/set-id 6711 1600000001.0 1 program",
          "open 0755 1700000000.0", "open/._alone 0644 1700000000.0 1 no companion", "open/._one companion",
          "open/a:b 0666 1.0 1 ", "open/loop 0000 1700000000.0 -> ../open",
          "open/one 0644 1700000000.0 2 shared large=100000"}},
        {"APFS",
         apfs,
         {"closed 0555" + ns + "of.folder=f", "closed/._one companion",
          "closed/one 4755" + ns + "2 shared large=100000", "open 1777" + ns.substr(0, ns.size() - 1),
          "open/._alone 0644" + ns + "1 no companion", "open/._one companion", "open/link 0000" + ns + "-> ../closed",
          "open/one 4755" + ns + "2 shared large=100000"}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        const Sandbox sandbox;
        const mode_t mask = ::umask(077);
        extract(each.disk, sandbox.url());
        ::umask(mask);
        EXPECT_EQ(listing(sandbox.url()), each.lines);
    }
}

TEST(VolumeExtraction, refusesWhatItCannotKeep) {
    const TestItem needy{.attributes = {{"large", large}}};
    const struct {
        const char* problem;
        TestTree tree;
    } cases[]{
        {"Cannot create ROOT/f/._a: File exists", {{"f/a", needy}, {"f/._a", {.data = "mine"}}}},
        {"Cannot create the link ROOT/._a: File exists", {{"a", needy}, {"._a", {.mode = 0120755, .data = "a"}}}},
        {"Cannot keep attributes in ROOT/._a: File exists", {{"a", needy}, {"._a", {.mode = 040755}}}},
        {"Cannot keep an attribute of ROOT/._a: Operation not supported", {{"._a", needy}}},
        {"Cannot keep attributes of ROOT/._b: Operation not supported", {{"a", needy}, {"._b", {.linkOf = "a"}}}},
        {"Cannot set an attribute of ROOT/a: File name too long",
         {{"a", {.attributes = {{large.substr(0, 128), ""}}}}}},
        {"disk image: \"f/pipe\" is a named pipe, which is not supported", {{"f/pipe", {.mode = 010644}}}},
        {"disk image: \"disk\" is a device, which is not supported", {{"disk", {.mode = 060644}}}},
        {"disk image: \"terminal\" is a device, which is not supported", {{"terminal", {.mode = 020644}}}},
        {"disk image: \"socket\" is a socket, which is not supported", {{"socket", {.mode = 0140644}}}},
    };
    for (const auto& each : cases) {
        const Sandbox sandbox;
        std::string problem = each.problem;
        if (const std::size_t root = problem.find("ROOT"); root != std::string::npos) {
            problem.replace(root, 4, sandbox.url().string());
        }
        EXPECT_EQ(errorOf([&] { extract(testVolume(each.tree), sandbox.url()); }), problem);
    }
}

TEST(VolumeExtraction, stopsOnRequest) {
    const Sandbox sandbox;
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(extract(testVolume({{"a", {.data = "a"}}}), sandbox.url(), stop.get_token()), CancellationError);
    EXPECT_TRUE(FileManager::contentsOfDirectory(sandbox.url()).empty());
}

TEST(VolumeExtraction, keepsTheRootsAttributesInside) {
    const Sandbox sandbox;
    FileManager::createDirectory(sandbox / "mount");
    extract(testVolume({{".", {.mode = 040755, .attributes = {{"large", large}, {"small", "s"}}}}}), sandbox / "mount");
    EXPECT_FALSE(FileManager::fileExists(sandbox / "._mount"));
    EXPECT_EQ(ExtendedAttributes::value(sandbox / "mount", "small"), "s");
}

std::string entitiesOf(const std::string& disk) {
    const MemoryAccess access(disk);
    const MountableVolume volume(access);
    std::string text;
    for (const DiskEntity& each : volume.entities()) {
        text += std::to_string(each.disk) + "s" + std::to_string(each.slice) + " " + each.contentHint.substr(0, 14) +
                (each.isMounted ? " mounted\n" : "\n");
    }
    return text;
}

TEST(MountableVolume, isFoundInEveryMap) {
    const std::string hfs = testVolume({});
    const std::string apfs = testContainer({});
    const std::string store = "7C3457EF-0000-11AA-AA11-00306543ECAC";
    const std::string container = "1s0 EF57347C-0000-\n1s1 41504653-0000- mounted\n";
    const struct {
        std::string disk;
        std::string entities;
    } cases[]{
        {hfs, "0s0 Apple_HFS mounted\n"},
        {TestImage::guidDisk(hfs), "0s0 GUID_partition\n0s1 48465300-0000- mounted\n"},
        {TestImage::appleDisk(hfs), "0s0 Apple_partitio\n0s1 Apple_partitio\n0s2 Apple_HFS mounted\n"},
        {apfs, "0s0 7C3457EF-0000-\n" + container},
        {TestImage::guidDisk(apfs, store), "0s0 GUID_partition\n0s1 7C3457EF-0000-\n" + container},
    };
    for (const auto& each : cases) EXPECT_EQ(entitiesOf(each.disk), each.entities);
}

/// A disk of 64 KiB with marks at offsets.
std::string marked(const std::vector<std::pair<std::size_t, std::string>>& marks) {
    std::string disk(1 << 16, '\0');
    for (const auto& [offset, mark] : marks) disk.replace(offset, mark.size(), mark);
    return disk;
}

/// With one part in a map of the oldest kind, from sector 8 on.
std::string withMap(const std::string& part) {
    const std::string sectors{static_cast<char>(part.size() / 512 % 256), static_cast<char>(part.size() / 512 / 256)};
    std::string disk = marked({{450, "\x0B"}, {454, "\x08"}, {458, sectors}, {510, "\x55\xAA"}});
    disk.resize(4096);
    return disk + part;
}

TEST(MountableVolume, refusesOthersByName) {
    const std::string fat = marked({{54, "FAT16   "}, {510, "\x55\xAA"}});
    const struct {
        std::string disk;
        std::string problem;
    } cases[]{
        {marked({}), "it holds no volume of a known kind"},
        {marked({{510, "\x55\xAA"}}), "it holds no volume of a known kind"},
        {fat, "FAT volumes are not supported"},
        {marked({{82, "FAT32   "}, {510, "\x55\xAA"}}), "FAT volumes are not supported"},
        {marked({{3, "EXFAT   "}}), "exFAT volumes are not supported"},
        {marked({{3, "NTFS    "}}), "NTFS volumes are not supported"},
        {marked({{32769, "CD001"}}), "ISO 9660 volumes are not supported"},
        {marked({{1024, "BD"}}), "Mac OS Standard (HFS) volumes are not supported"},
        {TestImage::guidDisk(fat), "FAT volumes are not supported"},
        {withMap(fat), "FAT volumes are not supported"},
        {withMap(testVolume({})), "in an MBR partition map, Mac OS Extended volumes are not supported"},
    };
    for (const auto& each : cases) EXPECT_EQ(errorOf([&] { entitiesOf(each.disk); }), "disk image: " + each.problem);
}

} // namespace
} // namespace corvane
