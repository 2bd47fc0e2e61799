#include "Platform/Formats/Apfs/Volume.hpp"
#include "Tests/TestSupport.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>

namespace corvane {
namespace {

using namespace TestSupport;

bool hasArchiver() { return run({"sh", "-c", "command -v 7zz"}).status == 0; }

/// The partition of an image, put into a folder.
FileURL partition(const FileURL& image, const FileURL& folder) {
    run({"7zz", "x", "-tdmg", "-y", "-o" + std::string(folder), std::string(image)});
    for (const auto& item : std::filesystem::directory_iterator(std::string(folder))) {
        if (item.path().filename().string().starts_with("4.")) return FileURL(item.path().string());
    }
    return folder / "none";
}

std::string content(const Volume& volume, const VolumeEntry& entry) {
    const auto source = volume.open(entry);
    return readAll(*source, std::size_t{1} << 30, "test");
}

/// Expects the item at a path to be the same in kind, data and, but for absolute ones, link.
void expectSame(const Volume& volume, const VolumeEntry& entry, const FileURL& other) {
    struct stat status {};
    ASSERT_EQ(::lstat(other.c_str(), &status), 0) << other.c_str();
    ASSERT_EQ(entry.mode & S_IFMT, status.st_mode & S_IFMT) << other.c_str();
    if (S_ISREG(entry.mode)) {
        EXPECT_EQ(content(volume, entry).size(), entry.size) << other.c_str();
        EXPECT_TRUE(content(volume, entry) == read(other)) << other.c_str();
    } else if (S_ISLNK(entry.mode) && !entry.linkTarget.starts_with('/')) {
        EXPECT_EQ(entry.linkTarget, std::filesystem::read_symlink(std::string(other)).string()) << other.c_str();
    }
}

/// Attributes are left out, and absolute links, which the archiver changes.
TEST(ApfsVolumeSamples, areReadAsAnArchiverReadsThem) {
    CORVANE_REQUIRE_SAMPLES();
    if (!hasArchiver()) GTEST_SKIP() << "there is no 7zz here";
    const struct {
        const char* image;
        const char* name;
        std::size_t entries;
    } cases[] = {
        {"brew_container-apfs.dmg", "container-apfs", 2},
        {"ch34xvcp-2025-pkg-inside.dmg", "CH34xVCPDriver", 37},
        {"dfvfs_apfs.raw", "apfs_test", 11},
        {"dmgwiz-apfs-adc.dmg", "empty", 1},
        {"dmgwiz-apfs-lzfse.dmg", "empty", 1},
        {"dmgwiz-apfs-ro.dmg", "empty", 1},
        {"karabiner-vhid-0.20.2-ticketonly-apfs.dmg", "Karabiner-DriverKit-VirtualHIDDevice-0.20.2", 2},
        {"sparkle_SparkleTestCodeSign_apfs.dmg", "SparkleTest", 232},
        {"sparkle_SparkleTestCodeSign_apfs_lzma_aux_files.dmg", "SparkleTest", 241},
        {"sparkle_SparkleTestCodeSign_pkg.dmg", "SparkleTest", 10},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.image);
        const Sandbox sandbox;
        const FileURL image = *samples() / "dmg" / each.image;
        const bool isRaw = std::string(each.image).ends_with(".raw");
        const FileAccess disk(isRaw ? image : partition(image, sandbox / "disk"));
        const Apfs::Volume volume(disk);
        EXPECT_EQ(volume.name(), each.name);
        EXPECT_EQ(volume.entries().size(), each.entries);
        run({"7zz", "x", "-tapfs", "-sns-", "-y", "-o" + std::string(sandbox / "tree"),
             std::string(isRaw ? image : partition(image, sandbox / "disk"))});
        for (const VolumeEntry& entry : volume.entries()) {
            if (entry.path != ".") expectSame(volume, entry, sandbox / "tree" / entry.path);
        }
    }
}

TEST(ApfsVolumeSamples, applicationIsThatOfItsArchive) {
    CORVANE_REQUIRE_SAMPLES();
    if (!hasArchiver()) GTEST_SKIP() << "there is no 7zz here";
    const Sandbox sandbox;
    const FileURL archive = *samples() / "dmg" / "sparkle_SparkleTestCodeSignApp.tar";
    ASSERT_EQ(run({"tar", "-xpf", std::string(archive), "-C", std::string(sandbox.url())}).status, 0);
    const FileURL image = *samples() / "dmg" / "sparkle_SparkleTestCodeSign_apfs.dmg";
    const FileAccess disk(partition(image, sandbox / "disk"));
    const Apfs::Volume volume(disk);
    std::size_t count = 0;
    for (const VolumeEntry& entry : volume.entries()) {
        if (!entry.path.starts_with("SparkleTestCodeSignApp.app")) continue;
        ++count;
        const FileURL file = sandbox / entry.path;
        expectSame(volume, entry, file);
        struct stat status {};
        ASSERT_EQ(::lstat(file.c_str(), &status), 0);
        const mode_t mode = S_ISLNK(entry.mode) ? S_IFLNK | 0755 : status.st_mode;
        EXPECT_EQ(entry.mode, mode) << entry.path;
        // Extraction leaves some folders with the time of their last change.
        if (S_ISDIR(entry.mode)) continue;
        EXPECT_EQ(entry.modified.tv_sec, status.st_mtim.tv_sec) << entry.path;
    }
    EXPECT_EQ(count, 227U);
}

/// What 7zz has no comparable form for: one attribute in its record and one in a stream.
TEST(ApfsVolumeSamples, attributesAreRead) {
    CORVANE_REQUIRE_SAMPLES();
    const FileAccess disk(*samples() / "dmg" / "dfvfs_apfs.raw");
    const Apfs::Volume volume(disk);
    std::map<std::string, std::size_t> sizes;
    for (const VolumeEntry& entry : volume.entries()) {
        for (const auto& [name, value] : volume.attributes(entry)) {
            sizes[entry.path + " " + name] = value.size();
        }
    }
    EXPECT_EQ(sizes["a_directory/a_file myxattr"], 21U);
    EXPECT_EQ(sizes["a_directory/a_resourcefork com.apple.ResourceFork"], 17U);
}

} // namespace
} // namespace corvane
