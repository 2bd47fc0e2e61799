#include "Platform/Formats/ExtendedAttributes/ExtendedAttributes.hpp"
#include "Support/FileManager.hpp"
#include "Tests/TestSupport.hpp"
#include "Tests/TreeSnapshot.hpp"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

namespace corvane {
namespace {

using TestSupport::read;
using TestSupport::Sandbox;

const std::string note = "com.example.note";
/// More than a file system takes as one attribute.
const std::string large(std::size_t{1} << 17U, 'x');

TestSupport::Outcome ditto(const Sandbox& sandbox, const std::string& source, const std::string& destination) {
    return TestSupport::run({TestSupport::program("libexec/corvane/ditto"), source, destination},
                            {.folder = sandbox.url()});
}

void setTime(const FileURL& item, time_t seconds) {
    const timespec times[2] = {{seconds, 111}, {seconds, 123456789}};
    ::utimensat(AT_FDCWD, item.c_str(), times, AT_SYMLINK_NOFOLLOW);
}

/// A tree "a" with one of everything.
void makeTree(const Sandbox& sandbox) {
    for (const char* name : {"a/empty", "a/!first", "a/B/x\ny", "a/B/\xC3\xA9", "a/closed/inside", "a/--help"}) {
        sandbox.write(name, name == std::string("a/empty") ? "" : name);
    }
    // A size that no buffer divides.
    sandbox.write("a/big", std::string((std::size_t{5} << 20U) + 17, 'b'));
    for (const char* name : {"a/second", "a/closed/third"}) {
        std::filesystem::create_hard_link(sandbox / "a/!first", sandbox / name);
    }
    for (const auto& [name, text] : {std::pair{"here", "B"}, {"there", "/nowhere"}, {"B/up", "../.."}}) {
        std::filesystem::create_symlink(text, sandbox / ("a/" + std::string(name)));
        setTime(sandbox / ("a/" + std::string(name)), 1100000000);
    }
    for (const char* name : {"a", "a/B", "a/!first", "a/closed/inside", "a/here"}) {
        ExtendedAttributes::set(sandbox / name, note, name);
        ExtendedAttributes::set(sandbox / name, "com.example.large", large + name);
    }
    // The companion of the whole has a name within, too.
    std::filesystem::create_hard_link(sandbox / "._a", sandbox / "a/B/companion");
    for (const auto& [name, mode] : std::vector<std::pair<const char*, mode_t>>{{"big", 06755},
                                                                                {"empty", 0},
                                                                                {"!first", 0444},
                                                                                {"closed/inside", 0600},
                                                                                {"closed", 0555},
                                                                                {"B", 03777},
                                                                                {".", 0750}}) {
        if (mode == 0 && ::geteuid() != 0) continue; // only root reads such a file
        setTime(sandbox / "a" / name, 1000000000 + static_cast<time_t>(mode));
        ::chmod((sandbox / "a" / name).c_str(), mode);
    }
}

TEST(Ditto, copiesEverything) {
    const Sandbox sandbox;
    makeTree(sandbox);
    const auto expected = TestSupport::treeSnapshot(sandbox / "a");
    for (const char* destination : {"b", "new/folders/b/"}) {
        const auto outcome = ditto(sandbox, "a/", destination);
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        EXPECT_EQ(outcome.output + outcome.errors, "");
        TestSupport::expectSameTrees(expected, TestSupport::treeSnapshot(sandbox / destination));
    }
    // A single file, under another name, within an existing folder and in one to be made; a link that is named.
    std::filesystem::create_symlink("a/closed/inside", sandbox / "link");
    for (const auto& [source, destination, result] : std::vector<std::array<const char*, 3>>{
             {"a/closed/inside", "c/d", "c/d"}, {"a/closed/inside", "c", "c/inside"}, {"link", "e/", "e/link"}}) {
        EXPECT_EQ(ditto(sandbox, source, destination).status, 0) << destination;
        EXPECT_EQ(read(sandbox / result), "a/closed/inside");
        EXPECT_EQ(ExtendedAttributes::value(sandbox / result, note), "a/closed/inside");
        EXPECT_EQ(ExtendedAttributes::value(sandbox / result, "com.example.large"), large + "a/closed/inside");
    }
}

/// What stands in the destination stays, or is replaced and never written to.
TEST(Ditto, mergesIntoWhatIsThere) {
    const Sandbox sandbox;
    for (const char* name : {"a/file", "a/link", "a/sub/new", "a/plain", "a/fresh", "a/folder/x"}) {
        sandbox.write(name, "new");
    }
    std::filesystem::create_symlink("new", sandbox / "a/target");
    for (const char* name : {"b/file", "b/sub/old", "b/target", "b/plain", "b/._plain", "outside"}) {
        sandbox.write(name, "old");
    }
    std::filesystem::create_hard_link(sandbox / "b/file", sandbox / "elsewhere");
    std::filesystem::create_symlink("../outside", sandbox / "b/link");
    // Attributes of the old file, and what other items have left behind, which are not the new items'.
    for (const char* name : {"b/file", "b/fresh", "b/folder"}) {
        sandbox.write(name, "old");
        ExtendedAttributes::set(sandbox / name, note, large);
        if (name != std::string("b/file")) FileManager::removeItem(sandbox / name);
    }
    ExtendedAttributes::set(sandbox / "b/sub", note, "kept");
    ::chmod((sandbox / "b/sub").c_str(), 0700);
    std::filesystem::create_symlink("b", sandbox / "named");

    EXPECT_EQ(ditto(sandbox, "a", "named").status, 0);
    for (const auto& [name, content] : std::vector<std::pair<const char*, const char*>>{{"b/file", "new"},
                                                                                        {"elsewhere", "old"},
                                                                                        {"b/link", "new"},
                                                                                        {"outside", "old"},
                                                                                        {"b/sub/new", "new"},
                                                                                        {"b/sub/old", "old"},
                                                                                        {"b/._plain", "old"},
                                                                                        {"b/folder/x", "new"}}) {
        EXPECT_EQ(read(sandbox / name), content) << name;
    }
    EXPECT_TRUE(std::filesystem::is_symlink(sandbox / "b/target"));
    EXPECT_FALSE(std::filesystem::is_symlink(sandbox / "b/link"));
    for (const char* name : {"b/file", "b/fresh", "b/folder"}) {
        EXPECT_EQ(ExtendedAttributes::names(sandbox / name), std::vector<std::string>()) << name;
    }
    EXPECT_EQ(ExtendedAttributes::value(sandbox / "b/sub", note), "kept");
    EXPECT_EQ(FileManager::itemStatus(sandbox / "b/sub").st_mode & 07777U, 0700U);
}

/// One line that names the item, and nothing of a destination that was not there.
TEST(Ditto, refusesWhatItCannotCopy) {
    const Sandbox sandbox;
    for (const char* name : {"file", "in/x", "in/y/file", "over/x/file", "under/y", "taken/z"})
        sandbox.write(name, "1");
    std::filesystem::create_directory(sandbox / "linked");
    std::filesystem::create_symlink("../over", sandbox / "linked/y");
    sandbox.write("pipes/a", "1");
    ::mkfifo((sandbox / "pipes/b").c_str(), 0600);
    const std::vector<std::tuple<const char*, const char*, std::string>> cases{
        {"missing", "b", "missing: No such file or directory\n"},
        {"in", "file", "file: Not a directory\n"},
        {"in", "over", "over/x: Is a directory\n"},
        {"in", "under", "under/y: Not a directory\n"},
        {"in", "linked", "linked/y: Not a directory\n"},
        {"file/", "b", "file/: Not a directory\n"},
        {"pipes", "b/c/d", "pipes/b: Neither a file, a folder nor a link\n"},
        {"pipes/b", "b/c", "/pipes/b: Neither a file, a folder nor a link\n"},
        {"file", "file/x", "file: Not a directory\n"},
        {"in", "in/y/new", "in/y/new: Lies in in, or the other way round\n"},
        {"in/y", "in", "in: Lies in in/y, or the other way round\n"},
        {"in", "in", "in: Lies in in, or the other way round\n"},
        {"file", "./file", "./file: Is what is to be copied\n"}};
    for (const auto& [source, destination, text] : cases) {
        const auto outcome = ditto(sandbox, source, destination);
        EXPECT_EQ(outcome.status, 1) << source << " " << destination;
        EXPECT_TRUE(outcome.errors.starts_with("ditto: ")) << outcome.errors;
        EXPECT_NE(outcome.errors.find(text), std::string::npos) << outcome.errors;
        EXPECT_FALSE(FileManager::fileExists(sandbox / "b"));
    }
    EXPECT_EQ(read(sandbox / "over/x/file") + read(sandbox / "file"), "11");
    EXPECT_EQ(ditto(sandbox, "-X", "b").status, 64);
    EXPECT_EQ(ditto(sandbox, "a", "").errors, "Usage: ditto SOURCE DESTINATION\n");
}

/// A file that does not fit stands for a disk that is full: nothing half-copied is left, also not where there was a
/// file before.
TEST(Ditto, leavesNothingHalfCopied) {
    const Sandbox sandbox;
    sandbox.write("a/large", large);
    sandbox.write("b/large", "before");
    for (const char* destination : {"b", "c/d"}) {
        const std::string call = "trap '' XFSZ; ulimit -f 64; exec \"$0\" a " + std::string(destination);
        const auto outcome = TestSupport::run({"sh", "-c", call, TestSupport::program("libexec/corvane/ditto")},
                                              {.folder = sandbox.url()});
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.errors, "ditto: " + std::string(destination) + "/large: File too large\n");
    }
    EXPECT_EQ(read(sandbox / "b/large"), "before");
    EXPECT_EQ(FileManager::contentsOfDirectory(sandbox / "b").size(), 1U);
    EXPECT_FALSE(FileManager::fileExists(sandbox / "c"));
}

TEST(Ditto, removesEverythingWhenItIsToldToStop) {
    const Sandbox sandbox;
    for (int file = 0; file < 3000; ++file) sandbox.write("a/" + std::to_string(file), "1");
    const pid_t child = ::fork();
    if (child == 0) {
        ::execl(TestSupport::program("libexec/corvane/ditto").c_str(), "ditto", (sandbox / "a").c_str(),
                (sandbox / "b/c").c_str(), nullptr);
        ::_exit(127);
    }
    int status = 0;
    pid_t ended = 0;
    while (ended == 0 && !FileManager::fileExists(sandbox / "b/c/0")) ended = ::waitpid(child, &status, WNOHANG);
    ASSERT_EQ(ended, 0) << "it ended by itself, with the status " << status;
    ::kill(child, SIGTERM);
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
    EXPECT_FALSE(FileManager::fileExists(sandbox / "b"));
}

} // namespace
} // namespace corvane
