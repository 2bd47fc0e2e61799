#include "Support/AtomicFolder.hpp"
#include "Support/FileError.hpp"
#include "Support/FileManager.hpp"
#include "Tests/TestSupport.hpp"

namespace corvane {
namespace {

using TestSupport::Sandbox;

TEST(AtomicFolder, appearsWholeOrNotAtAll) {
    const Sandbox sandbox;
    {
        AtomicFolder folder(sandbox / "dropped");
        FileManager::createDirectory(folder.url() / "closed");
        std::filesystem::permissions(folder.url() / "closed", std::filesystem::perms(0555));
    }
    EXPECT_TRUE(FileManager::contentsOfDirectory(sandbox.url()).empty());
    {
        AtomicFolder folder(sandbox / "kept/");
        FileManager::createDirectory(folder.url() / "inner");
        EXPECT_FALSE(FileManager::fileExists(sandbox / "kept"));
        folder.commit();
    }
    EXPECT_TRUE(FileManager::isDirectory(sandbox / "kept/inner"));
    EXPECT_EQ(std::filesystem::status(sandbox / "kept").permissions(), std::filesystem::perms(0700));
    EXPECT_EQ(FileManager::contentsOfDirectory(sandbox.url()).size(), 1U);
}

TEST(AtomicFolder, replacesNothing) {
    const Sandbox sandbox;
    FileManager::createDirectory(sandbox / "folder");
    sandbox.write("file", "");
    std::filesystem::create_symlink("nowhere", sandbox / "link");
    for (const char* name : {"folder", "folder/", "file", "link", "link/"}) {
        EXPECT_THROW(AtomicFolder(sandbox / name), FileError) << name;
    }
    AtomicFolder late(sandbox / "late");
    FileManager::createDirectory(sandbox / "late");
    EXPECT_THROW(late.commit(), FileError);
    EXPECT_THROW(AtomicFolder(sandbox / "missing/folder"), FileError);
}

TEST(AtomicFolder, takesThePlaceOfAnEmptyFolderOnly) {
    const Sandbox sandbox;
    const auto empty = AtomicFolder::Destination::emptyFolder;
    FileManager::createDirectory(sandbox / "folder");
    sandbox.write("full/file", "");
    std::filesystem::create_symlink("folder", sandbox / "link");
    for (const char* name : {"full", "full/file", "link", "link/", "missing"}) {
        EXPECT_THROW(AtomicFolder(sandbox / name, empty), FileError) << name;
    }
    AtomicFolder early(sandbox / "folder", empty), late(sandbox / "folder", empty);
    FileManager::createDirectory(early.url() / "inner");
    early.commit();
    EXPECT_TRUE(FileManager::isDirectory(sandbox / "folder/inner"));
    EXPECT_THROW(late.commit(), FileError);
}

} // namespace
} // namespace corvane
