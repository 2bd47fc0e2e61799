#include "Platform/Formats/ExtractionFolder.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Support/CancellationError.hpp"
#include "Support/FileError.hpp"
#include "Support/FileManager.hpp"
#include "Tests/TestSupport.hpp"

#include <sys/stat.h>

#include <functional>

namespace corvane {
namespace {

using TestSupport::Sandbox;

void addFile(ExtractionFolder& folder, const std::string& path, const std::string& content = "new") {
    MemorySource source(content);
    folder.addFile(path, {}, content.size(), source);
}

std::uint32_t modeOf(const FileURL& url) {
    struct stat status {};
    EXPECT_EQ(::lstat(url.c_str(), &status), 0) << url;
    return status.st_mode & 07777U;
}

TEST(ExtractionFolder, neverWritesThroughALinkOrOutside) {
    const Sandbox sandbox;
    sandbox.write("outside/file", "old");
    const std::vector<std::pair<const char*, std::function<void(ExtractionFolder&)>>> attacks{
        {"dot-dot", [](auto& folder) { addFile(folder, "../outside/new"); }},
        {"dot-dot inside", [](auto& folder) { addFile(folder, "a/../../outside/new"); }},
        {"absolute", [&](auto& folder) { addFile(folder, sandbox / "outside/new"); }},
        {"empty", [](auto& folder) { addFile(folder, ""); }},
        {"link to a folder, file below",
         [](auto& folder) {
             folder.addSymbolicLink("l", "../outside", {});
             addFile(folder, "l/new");
         }},
        {"link to a folder, taken over",
         [](auto& folder) {
             folder.addSymbolicLink("l", "../outside", {});
             folder.addFolder("l", {.mode = 0700});
         }},
        {"link deeper down",
         [](auto& folder) {
             folder.addSymbolicLink("a/l", "../../outside", {});
             folder.addFolder("a/l/new", {});
         }},
        {"link to a file, same name",
         [](auto& folder) {
             folder.addSymbolicLink("l", "../outside/file", {});
             addFile(folder, "l");
         }},
        {"hard link through a link",
         [](auto& folder) {
             folder.addSymbolicLink("l", "../outside", {});
             folder.addHardLink("stolen", "l/file");
         }},
        {"hard link upwards", [](auto& folder) { folder.addHardLink("stolen", "../outside/file"); }},
        {"reading through a link",
         [](auto& folder) {
             folder.addSymbolicLink("l", "../outside/file", {});
             folder.openFile("l");
         }},
        {"file twice",
         [](auto& folder) {
             addFile(folder, "a");
             addFile(folder, "a");
         }},
        {"folder over a file",
         [](auto& folder) {
             addFile(folder, "a");
             folder.addFolder("a", {});
         }},
    };
    for (const auto& [name, attack] : attacks) {
        SCOPED_TRACE(name);
        FileManager::removeItem(sandbox / "in");
        FileManager::createDirectory(sandbox / "in");
        ExtractionFolder folder(sandbox / "in", {});
        EXPECT_THROW(attack(folder), std::runtime_error);
        EXPECT_EQ(FileManager::contentsOfDirectory(sandbox / "outside").size(), 1U);
        EXPECT_EQ(TestSupport::read(sandbox / "outside/file"), "old");
        EXPECT_FALSE(FileManager::fileExists(sandbox / "in/stolen"));
    }
}

TEST(ExtractionFolder, restoresModesAndTimesLast) {
    const Sandbox sandbox;
    const FileURL root = sandbox / "in";
    FileManager::createPrivateDirectory(root);
    ExtractionFolder folder(root, {});
    folder.addFolder("closed", {.mode = 0555, .modificationTime = timespec{1000, 0}});
    MemorySource content("x");
    folder.addFile("closed/program", {.mode = 04711, .modificationTime = timespec{2000, 0}}, 1, content);
    addFile(folder, "implied/deep/file");
    folder.addFolder("implied", {.mode = 02750, .modificationTime = timespec{3000, 0}});
    folder.addFolder("shut/inner", {.mode = 0});
    folder.addFolder("shut", {.mode = 0});
    folder.addSymbolicLink("link", "nowhere", {.modificationTime = timespec{4000, 0}});
    folder.finish();
    EXPECT_EQ(modeOf(root), 0700U);
    EXPECT_EQ(modeOf(root / "closed"), 0555U);
    EXPECT_EQ(modeOf(root / "closed/program"), 04711U);
    EXPECT_EQ(modeOf(root / "implied"), 02750U);
    EXPECT_EQ(modeOf(root / "implied/deep"), 0755U);
    EXPECT_EQ(modeOf(root / "implied/deep/file"), 0644U);
    EXPECT_EQ(modeOf(root / "shut"), 0U);
    ::chmod((root / "shut").c_str(), 0700);
    EXPECT_EQ(modeOf(root / "shut/inner"), 0U);
    const std::vector<std::pair<const char*, time_t>> times{
        {"closed", 1000}, {"closed/program", 2000}, {"implied", 3000}, {"link", 4000}};
    for (const auto& [path, time] : times) {
        struct stat status {};
        EXPECT_EQ(::lstat((root / path).c_str(), &status), 0);
        EXPECT_EQ(status.st_mtime, time) << path;
    }
}

TEST(ExtractionFolder, stopsOnRequestAndOnAWrongSize) {
    const Sandbox sandbox;
    std::stop_source stop;
    ExtractionFolder folder(sandbox.url(), stop.get_token());
    for (const std::uint64_t size : {1U, 5U}) {
        MemorySource source("abc");
        EXPECT_THROW(folder.addFile("file" + std::to_string(size), {}, size, source), FormatError);
    }
    stop.request_stop();
    EXPECT_THROW(addFile(folder, "late"), CancellationError);
    EXPECT_FALSE(FileManager::fileExists(sandbox / "late"));
}

TEST(ExtractionFolder, keepsATwentiethOfTheFileSystemFree) {
    struct Case {
        std::uint64_t total, available, needed;
        bool fits;
    };
    for (const Case& each : std::vector<Case>{{1000, 500, 450, true},
                                              {1000, 500, 451, false},
                                              {1000, 500, 501, false},
                                              {1000, 49, 0, false},
                                              {1000, 500, UINT64_MAX, false},
                                              {0, 100, 50, true}}) {
        EXPECT_EQ(keepsReserve(each.total, each.available, each.needed), each.fits) << each.available << each.needed;
    }
    const Sandbox sandbox;
    ExtractionFolder folder(sandbox.url(), {});
    MemorySource source("abc");
    EXPECT_THROW(folder.addFile("huge", {}, std::uint64_t{1} << 62, source), FileError);
}

} // namespace
} // namespace corvane
