#include "Platform/Formats/ExtendedAttributes/ExtendedAttributes.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Support/FileError.hpp"
#include "Support/FileManager.hpp"
#include "Tests/TestSupport.hpp"

#include <sys/xattr.h>

#include <filesystem>

namespace corvane {
namespace {

using TestSupport::read;
using TestSupport::Sandbox;
using Names = std::vector<std::string>;

/// More than any file system takes as one attribute.
const std::string large(std::size_t{1} << 17, 'x');
const std::string name = "com.example.note";

/// What the file system itself has; nothing also where it keeps no attributes.
std::optional<std::string> ofFileSystem(const FileURL& item) {
    char bytes[100];
    const ssize_t size = ::lgetxattr(item.c_str(), ("user." + name).c_str(), bytes, sizeof bytes);
    return size < 0 ? std::nullopt : std::optional(std::string(bytes, static_cast<std::size_t>(size)));
}

/// What an item has is the same wherever it is kept: small values where the file system takes them, large ones beside.
TEST(ExtendedAttributes, areKeptInEitherPlace) {
    const Sandbox sandbox;
    const FileURL file = sandbox.write("folder/file", "content");
    const FileURL link = sandbox / "folder/link";
    std::filesystem::create_symlink("file", link);
    for (const FileURL& item : {file, link, sandbox / "folder"}) {
        const FileURL companion = ExtendedAttributes::companion(item);
        EXPECT_EQ(companion.filename(), "._" + item.filename().string());
        EXPECT_FALSE(ExtendedAttributes::value(item, name)) << item;
        for (const std::string& value : {std::string("small"), large, std::string(), large, std::string("last")}) {
            ExtendedAttributes::set(item, name, value);
            EXPECT_EQ(ExtendedAttributes::value(item, name), value) << item;
            // Never in both places.
            EXPECT_NE(ofFileSystem(item).has_value(), FileManager::fileExists(companion)) << item;
            EXPECT_EQ(ExtendedAttributes::isCompanion(companion), FileManager::fileExists(companion)) << item;
            EXPECT_TRUE(value != large || FileManager::fileExists(companion)) << item;
        }
        ExtendedAttributes::set(item, "com.example.large", large);
        EXPECT_EQ(ExtendedAttributes::names(item), (Names{"com.example.large", name})) << item;
        EXPECT_TRUE(ExtendedAttributes::remove(item, name));
        EXPECT_FALSE(ExtendedAttributes::remove(item, name));
        EXPECT_TRUE(ExtendedAttributes::remove(item, "com.example.large"));
        EXPECT_FALSE(FileManager::fileExists(companion)) << item;
        EXPECT_EQ(ExtendedAttributes::names(item), Names()) << item;
    }
    EXPECT_EQ(read(file), "content");
}

TEST(ExtendedAttributes, dropWhatSaysNothing) {
    const Sandbox sandbox;
    const FileURL file = sandbox.write("file", "");
    const std::string zeros(32, '\0');
    ExtendedAttributes::set(file, ExtendedAttributes::finderInfo, "TEXT" + zeros.substr(4));
    ExtendedAttributes::set(file, ExtendedAttributes::resourceFork, large);
    EXPECT_EQ(ExtendedAttributes::names(file).size(), 2U);
    ExtendedAttributes::set(file, ExtendedAttributes::finderInfo, zeros);
    ExtendedAttributes::set(file, ExtendedAttributes::resourceFork, "");
    EXPECT_EQ(ExtendedAttributes::names(file), Names());
    EXPECT_FALSE(FileManager::fileExists(ExtendedAttributes::companion(file)));
    if (::lsetxattr(file.c_str(), "user.com.apple.FinderInfo", zeros.data(), zeros.size(), 0) == 0) {
        EXPECT_EQ(ExtendedAttributes::names(file), Names());
        EXPECT_FALSE(ExtendedAttributes::value(file, ExtendedAttributes::finderInfo));
    }
}

TEST(ExtendedAttributes, leaveOtherFilesAlone) {
    const Sandbox sandbox;
    const FileURL file = sandbox.write("file", "");
    const FileURL ordinary = sandbox.write("._file", "my own");
    const FileURL lonely = sandbox.write("._lonely", AppleDouble{{{"a", "b"}}}.serialized());
    EXPECT_FALSE(ExtendedAttributes::isCompanion(ordinary));
    EXPECT_FALSE(ExtendedAttributes::isCompanion(lonely));
    EXPECT_FALSE(ExtendedAttributes::isCompanion(file));
    EXPECT_EQ(ExtendedAttributes::names(file), Names());
    EXPECT_THROW(ExtendedAttributes::set(file, name, large), FileError);
    EXPECT_EQ(read(ordinary), "my own");
    sandbox.write("._file", AppleDouble{{{"a", "b"}}}.serialized().substr(0, 60));
    EXPECT_FALSE(ExtendedAttributes::isCompanion(ordinary));
    EXPECT_THROW(ExtendedAttributes::names(file), FormatError);
    FileManager::removeItem(ordinary);
    std::filesystem::create_symlink("._lonely", ordinary);
    EXPECT_EQ(ExtendedAttributes::names(file), Names());
    sandbox.write("lonely", "");
    EXPECT_EQ(ExtendedAttributes::value(sandbox / "lonely", "a"), "b");
}

TEST(ExtendedAttributes, refuseWhatAMacRefuses) {
    const Sandbox sandbox;
    const FileURL file = sandbox.write("file", "");
    const FileURL sidecar = sandbox.write("._other", "");
    const struct {
        FileURL item;
        std::string name, value;
        int code;
    } cases[] = {
        {file, "", "x", EINVAL},
        {file, std::string("a\0b", 3), "x", EINVAL},
        {file, std::string(128, 'n'), "x", ENAMETOOLONG},
        {file, ExtendedAttributes::finderInfo, "short", ERANGE},
        {file, name, std::string(ExtendedAttributes::valueLimit + 1, 'x'), E2BIG},
        {sandbox / "absent", name, "x", ENOENT},
        {sandbox / "absent", name, large, ENOENT},
        {sidecar, name, large, ENOTSUP},
    };
    for (const auto& each : cases) {
        try {
            ExtendedAttributes::set(each.item, each.name, each.value);
            ADD_FAILURE() << each.code;
        } catch (const FileError& error) {
            EXPECT_EQ(error.code().value(), each.code) << error.what();
        }
    }
    EXPECT_THROW(ExtendedAttributes::names(sandbox / "absent"), FileError);
    EXPECT_EQ(FileManager::contentsOfDirectory(sandbox.url()).size(), 2U);
    EXPECT_EQ(ExtendedAttributes::companion("/"), "");
    EXPECT_EQ(ExtendedAttributes::companion(sidecar), "");
    EXPECT_EQ(ExtendedAttributes::companion(sandbox.write("folder/x", "").parent_path() / "."),
              std::filesystem::canonical(sandbox.url()) / "._folder");
}

TEST(ExtendedAttributes, areAsClosedAsTheFile) {
    const Sandbox sandbox;
    const FileURL file = sandbox.write("file", "");
    std::filesystem::permissions(file, std::filesystem::perms(0600));
    ExtendedAttributes::set(file, name, large);
    EXPECT_EQ(FileManager::itemStatus(ExtendedAttributes::companion(file)).st_mode & 07777U, 0600U);
}

} // namespace
} // namespace corvane
