#include "Support/AtomicFile.hpp"
#include "Support/FileManager.hpp"
#include "Tests/TestSupport.hpp"

#include <sys/stat.h>
#include <unistd.h>

namespace corvane {
namespace {

using TestSupport::read;
using TestSupport::Sandbox;

TEST(FileURL, readsComponentsFromTheTextOfThePath) {
    const struct {
        std::string path, name, extension, withoutExtension;
    } cases[] = {
        {"/in/Tool-1.2.pkg", "Tool-1.2.pkg", "pkg", "/in/Tool-1.2"},
        {"/in/Tool.pkg/", "Tool.pkg", "pkg", "/in/Tool"},
        {"/in.d/Tool", "Tool", "", "/in.d/Tool"},
        {"Tool.PKG", "Tool.PKG", "PKG", "Tool"},
        {"/", "/", "", "/"},
    };
    for (const auto& expected : cases) {
        EXPECT_EQ(lastPathComponent(expected.path), expected.name);
        EXPECT_EQ(pathExtension(expected.path), expected.extension);
        EXPECT_EQ(deletingPathExtension(expected.path), expected.withoutExtension);
    }
    EXPECT_EQ(replacingPathExtension("/out/Tool-signed.pkg", "bundles.txt"), "/out/Tool-signed.bundles.txt");
}

TEST(FileURL, standardisesByText) {
    const std::pair<std::string, std::string> cases[] = {
        {"/a//b/./c/../d/", "/a/b/d"}, {"/../../a", "/a"}, {"/", "/"}, {"a/../../b", "../b"}, {"/a/..", "/"},
    };
    for (const auto& [path, expected] : cases) EXPECT_EQ(standardized(path).string(), expected);
}

TEST(FileManager, removesTreesWithFoldersThatLostTheirWriteBit) {
    const Sandbox sandbox;
    sandbox.write("tree/closed/inner/file", "x");
    sandbox.write("outside/file", "stays");
    std::filesystem::create_directory_symlink(sandbox / "outside", sandbox / "tree/closed/link");
    ::chmod((sandbox / "tree/closed/inner").c_str(), 0555);
    ::chmod((sandbox / "tree/closed").c_str(), 0);
    FileManager::removeItem(sandbox / "tree");
    EXPECT_FALSE(FileManager::fileExists(sandbox / "tree"));
    EXPECT_EQ(read(sandbox / "outside/file"), "stays");
}

TEST(FileManager, copiesWithModeAndTimeAndReplacesWhole) {
    const Sandbox sandbox;
    const FileURL source = sandbox.write("source", "content");
    ::chmod(source.c_str(), 0640);
    std::filesystem::last_write_time(source, std::filesystem::file_time_type{});
    const FileURL destination = sandbox.write("destination", "older and longer content");
    FileManager::copyItem(source, destination);
    EXPECT_EQ(read(destination), "content");
    EXPECT_EQ(std::filesystem::last_write_time(destination), std::filesystem::file_time_type{});
    EXPECT_EQ(std::filesystem::status(destination).permissions(), static_cast<std::filesystem::perms>(0640));
    EXPECT_EQ(FileManager::contentsOfDirectory(sandbox.url()).size(), 2U);
}

TEST(FileManager, saysWhatFailedOnWhichFileAndWhy) {
    const Sandbox sandbox;
    const FileURL missing = sandbox / "missing";
    const FileURL file = sandbox.write("file", "");
    const auto text = [](auto&& operation) -> std::string {
        try {
            operation();
        } catch (const FileError& error) {
            return error.what();
        }
        return "no error";
    };
    EXPECT_EQ(text([&] { FileManager::readFile(missing, 1); }),
              "Cannot read " + missing.string() + ": No such file or directory");
    EXPECT_EQ(text([&] { FileManager::createDirectory(file / "below"); }),
              "Cannot create the folder " + (file / "below").string() + ": Not a directory");
    EXPECT_EQ(text([&] { FileManager::moveItem(missing, file); }),
              "Cannot move " + missing.string() + " to " + file.string() + ": No such file or directory");
}

TEST(AtomicFile, leavesNothingWithoutACommit) {
    const Sandbox sandbox;
    const FileURL destination = sandbox.write("file", "old");
    {
        AtomicFile file(destination);
        file.write("new");
    }
    EXPECT_EQ(read(destination), "old");
    EXPECT_EQ(FileManager::contentsOfDirectory(sandbox.url()).size(), 1U);
    AtomicFile file(destination);
    file.write("really");
    file.write("new");
    file.commit();
    EXPECT_EQ(read(destination), "reallynew");
}

} // namespace
} // namespace corvane
