#include "Platform/Formats/CodeResources/ResourceScan.hpp"
#include "Platform/Formats/ExtendedAttributes/AppleDouble.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Support/FileError.hpp"
#include "Tests/TestSupport.hpp"

#include <sys/stat.h>
#include <unistd.h>

namespace corvane::CodeResources {
namespace {

using TestSupport::Sandbox;
namespace fs = std::filesystem;

ResourceRules usualRules() {
    const auto list = PropertyList::parse(
        "<plist><dict><key>^.*</key><true/>"
        "<key>^(Frameworks|MacOS)/</key><dict><key>nested</key><true/><key>weight</key><real>10</real></dict>"
        "<key>^Info\\.plist$</key><dict><key>omit</key><true/><key>weight</key><real>20</real></dict>"
        "<key>^(.*/)?\\.DS_Store$</key><dict><key>omit</key><true/><key>weight</key><real>2000</real></dict>"
        "<key>^Skipped$</key><dict><key>omit</key><true/><key>weight</key><real>20</real></dict></dict></plist>",
        "rules");
    ResourceRules rules = ResourceRules::parse(*list.get<PropertyList::Dictionary>(), "rules");
    rules.exclude("MacOS/Run");
    return rules;
}

/// "KIND PATH" a line; files with their sizes.
std::string scanned(const FileURL& root) {
    const char* kinds[] = {"file", "link", "nested", "unreadable", "unsupported"};
    std::string text;
    for (const FoundResource& each : scan(root, usualRules())) {
        text += std::string(kinds[static_cast<int>(each.kind)]) + " " + each.path;
        if (each.kind == FoundResource::Kind::file) text += " " + std::to_string(each.size);
        text += "\n";
    }
    return text;
}

TEST(ResourceScan, findsWhatTheSealSpeaksOf) {
    const Sandbox root;
    const std::string companion = AppleDouble{.attributes = {{"com.example.a", "b"}}}.serialized();
    for (const char* path : {"Info.plist", "MacOS/Run", "MacOS/tool", "Frameworks/A.framework/Versions/A/A",
                             "Frameworks/plain/B.dylib", "Frameworks/plain/C.bundle/x", "Resources/a/b",
                             "Resources/a.txt", "Resources/.DS_Store", "Resources/C.bundle/x", "Resources/._lonely",
                             "Skipped/inside", "_CodeSignature/CodeResources", "CodeResources", "._notes", "notes"}) {
        root.write(path, "12345");
    }
    for (const char* path : {"Resources/._a", "Resources/._a.txt", "Resources/._link", "Resources/._absent",
                             "Frameworks/._A.framework", "._Info.plist"}) {
        root.write(path, companion);
    }
    fs::create_directory(root / "Resources/empty");
    fs::create_symlink("/absent", root / "Resources/link");
    fs::create_symlink("A.framework", root / "Frameworks/B.framework");
    fs::create_symlink("Resources", root / "More");
    ::mkfifo((root / "Resources/pipe").c_str(), 0600);
    ::mkfifo((root / "Skipped/.DS_Store").c_str(), 0600);
    EXPECT_EQ(scanned(root.url()), "file ._notes 5\n"
                                   "nested Frameworks/A.framework\n"
                                   "link Frameworks/B.framework\n"
                                   "file Frameworks/plain/B.dylib 5\n"
                                   "nested Frameworks/plain/C.bundle\n"
                                   "file MacOS/tool 5\n"
                                   "link More\n"
                                   "file Resources/._absent " +
                                       std::to_string(companion.size()) +
                                       "\n"
                                       "file Resources/._lonely 5\n"
                                       "file Resources/C.bundle/x 5\n"
                                       "file Resources/a.txt 5\n"
                                       "file Resources/a/b 5\n"
                                       "link Resources/link\n"
                                       "unsupported Resources/pipe\n"
                                       "file Skipped/inside 5\n"
                                       "file notes 5\n");
}

TEST(ResourceScan, refusesRootsAndDepths) {
    const Sandbox root;
    EXPECT_THROW(scanned(root / "absent"), FileError);
    EXPECT_THROW(scanned(root.write("file", "")), FileError);
    FileURL deep = root.url();
    for (std::size_t depth = 0; depth < depthLimit; ++depth) deep /= "d";
    fs::create_directories(deep);
    EXPECT_EQ(scanned(root.url()), "file file 0\n");
    fs::create_directory(deep / "d");
    EXPECT_THROW(scanned(root.url()), FormatError);
    const Sandbox other;
    FileURL wide = other.url();
    for (std::size_t size = 0; size < pathLimit; size += 128) wide /= std::string(127, 'w');
    fs::create_directories(wide);
    EXPECT_EQ(scanned(other.url()), "");
    fs::create_directory(wide / "w");
    EXPECT_THROW(scanned(other.url()), FormatError);
}

TEST(ResourceScan, closedFolders) {
    if (::geteuid() == 0) GTEST_SKIP() << "folders are never closed to root";
    const Sandbox root;
    for (const auto& [name, mode] :
         {std::pair("closed", fs::perms::none), std::pair("listed", fs::perms::owner_read)}) {
        root.write(std::string(name) + "/a", "");
        fs::permissions(root / name, mode);
    }
    EXPECT_EQ(scanned(root.url()), "unreadable closed\nunreadable listed\n");
    for (const char* name : {"closed", "listed"}) fs::permissions(root / name, fs::perms::owner_all);
}

TEST(ResourceScan, sealedPlaces) {
    const std::pair<const char*, bool> cases[] = {
        {"Resources", true},
        {"Resources/a", true},
        {"Info.plist", false},
        {"Skipped", false},
        {"Skipped/inside", true},
        {"Frameworks/A.framework", true},
        {"Frameworks/A.framework/.DS_Store", true},
        {"Frameworks/plain/.DS_Store", false},
        {"_CodeSignature", false},
        {"_CodeSignature/CodeResources", false},
        {"MacOS/Run", false},
        {"MacOS/Run/below", false},
    };
    for (const auto& [path, expected] : cases) EXPECT_EQ(isSealed(usualRules(), path), expected) << path;
}

} // namespace
} // namespace corvane::CodeResources
