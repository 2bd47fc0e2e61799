#include "Platform/Formats/BigEndian.hpp"
#include "Platform/Formats/ExtendedAttributes/ExtendedAttributes.hpp"
#include "Support/PropertyList.hpp"
#include "Tests/Platform/Tools/MountFixture.hpp"

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace corvane {
namespace {

using TestSupport::Outcome;
using TestSupport::TestTree;
using Names = std::vector<std::string>;

class Hdiutil : public TestSupport::MountFixture {
  protected:
    Hdiutil() { FileManager::createDirectory(mountPoint); }

    Outcome attach(const std::string& name, const std::string& input = "", Names more = {}) const {
        more.insert(more.begin(), {"attach", name, "-nobrowse", "-readonly", "-noautoopen", "-mountpoint", "mnt"});
        return hdiutil(more, input);
    }
    /// Starts an attach and stops it once its temporary folder stands beside the mount point.
    pid_t startAttach(const std::string& name) const {
        const pid_t child = ::fork();
        if (child == 0) {
            const std::string tool = TestSupport::program("libexec/corvane/hdiutil");
            const FileURL url = sandbox / name;
            ::putenv(::strdup(state().c_str()));
            ::execl(tool.c_str(), tool.c_str(), "attach", url.c_str(), "-mountpoint", mountPoint.c_str(), nullptr);
            ::_exit(127);
        }
        // Its name begins with a dot.
        while (namesIn(sandbox.url())[0][0] != '.' && ::waitpid(child, nullptr, WNOHANG) == 0) {
        }
        ::kill(child, SIGSTOP);
        return child;
    }
    /// The exit status, or 128 and the number of a signal.
    static int resume(pid_t child, int number = SIGCONT) {
        int status = 0;
        for (const int each : {number, SIGCONT}) ::kill(child, each);
        ::waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    FileURL mountPoint = sandbox / "mnt";
};

std::string value(const PropertyList::Value& list, const char* key) {
    const PropertyList::Value* found = list.find(key);
    return found != nullptr && found->get<std::string>() != nullptr ? *found->get<std::string>() : "";
}

TEST_F(Hdiutil, attachesListsAndDetaches) {
    sandbox.write("a.dmg", image({{".", {.mode = 040555, .attributes = {{"com.example.note", "volume"}}}},
                                  {"closed", {.mode = 040555}},
                                  {"closed/deep", {.mode = 040000}},
                                  {"closed/file", {.mode = 0100444, .data = "content"}},
                                  {"link", {.mode = 0120755, .data = "../outside"}}}));
    sandbox.write("outside/kept", "");
    ::chmod(mountPoint.c_str(), 0710);
    std::filesystem::create_symlink("mnt", sandbox / "alias");
    EXPECT_EQ(hdiutil({"info", "-plist"}).output.find("images"), std::string::npos);
    EXPECT_FALSE(FileManager::fileExists(sandbox / "state"));
    const Outcome attached = attach("a.dmg");
    EXPECT_EQ(attached.status, 0) << attached.errors;
    EXPECT_EQ(attached.output, "/dev/disk4      \tGUID_partition_scheme          \t\n"
                               "/dev/disk4s1    \t48465300-0000-11AA-AA11-00306543ECAC\t" +
                                   mountPoint.string() + "\n");
    EXPECT_EQ(TestSupport::read(mountPoint / "closed/file"), "content");
    EXPECT_EQ(FileManager::itemStatus(mountPoint).st_mode & 07777U, 0755U);
    EXPECT_EQ(ExtendedAttributes::value(mountPoint, "com.example.note"), "volume");

    const auto list = PropertyList::parse(hdiutil({"info", "-plist"}).output, "info");
    ASSERT_NE(list.find("images"), nullptr);
    const auto& mount = list.find("images")->get<PropertyList::Array>()->at(0);
    EXPECT_EQ(value(mount, "image-path"), sandbox / "a.dmg");
    EXPECT_EQ(value(mount, "image-type"), "UDIF read-only compressed (zlib)");
    EXPECT_EQ(*mount.find("writeable")->get<bool>(), false);
    const auto& entities = *mount.find("system-entities")->get<PropertyList::Array>();
    ASSERT_EQ(entities.size(), 2U);
    EXPECT_EQ(value(entities[0], "dev-entry"), "/dev/disk4");
    EXPECT_EQ(entities[0].find("mount-point"), nullptr);
    EXPECT_EQ(value(entities[1], "mount-point"), mountPoint);

    EXPECT_EQ(hdiutil({"detach", "alias"}).output, "\"disk4\" ejected.\n");
    EXPECT_EQ(namesIn(mountPoint), Names{});
    EXPECT_EQ(ExtendedAttributes::names(mountPoint), Names{});
    EXPECT_EQ(FileManager::itemStatus(mountPoint).st_mode & 07777U, 0710U);
    EXPECT_TRUE(FileManager::fileExists(sandbox / "outside/kept"));
    const Outcome again = hdiutil({"detach", "mnt"});
    EXPECT_EQ(again.status, 1);
    EXPECT_EQ(again.errors, "hdiutil: detach failed - No such file or directory\n");
    EXPECT_EQ(hdiutil({"detach", "mnt", "-quiet"}).errors, "");
}

TEST_F(Hdiutil, listsPathsThatCanBeComparedWithOthers) {
    const std::pair<const char*, const char*> cases[] = {{"a\n\t\r\x7f&.dmg", "a\n\t\r\x7f&.dmg"},
                                                         {"b\x01\xff\uFFFF.dmg", "b\uFFFD\uFFFD\uFFFD.dmg"}};
    for (const auto& [name, listed] : cases) {
        sandbox.write(name, image());
        ASSERT_EQ(attach(name).status, 0);
        const auto list = PropertyList::parse(hdiutil({"info", "-plist"}).output, "info");
        EXPECT_EQ(value(list.find("images")->get<PropertyList::Array>()->at(0), "image-path"), sandbox / listed);
        EXPECT_EQ(hdiutil({"detach", "mnt"}).status, 0);
    }
}

TEST_F(Hdiutil, namesVolumesAndDevices) {
    sandbox.write("plain.dmg", image());
    std::string oddName = "../\x01";
    for (int count = 0; count < 100; ++count) oddName += "\xe2\x80\xa6";
    sandbox.write("odd.dmg", image({}, {}, oddName));
    for (const char* name : {"Test", "Test 1"}) {
        EXPECT_EQ(hdiutil({"attach", "plain.dmg", "-quiet"}).output, "");
        EXPECT_TRUE(FileManager::fileExists(volumes() / name / "Folder/file"));
    }
    const Outcome odd = hdiutil({"attach", "odd.dmg"});
    EXPECT_EQ(odd.output.find("/dev/disk6"), 0U) << odd.output << odd.errors;
    EXPECT_EQ(namesIn(volumes()).size(), 3U);
    EXPECT_EQ(hdiutil({"detach", "/dev/disk4s1"}).status, 0);
    EXPECT_EQ(hdiutil({"detach", "disk6"}).status, 0);
    EXPECT_EQ(namesIn(volumes()), Names{"Test 1"});
    EXPECT_EQ(hdiutil({"detach", "disk7"}).status, 1);
    EXPECT_EQ(hdiutil({"attach", "plain.dmg"}).output.find("/dev/disk4 "), 0U);
}

TEST_F(Hdiutil, takesWhatTheImageDemandsOrSaysWhyNot) {
    const std::string good = image();
    sandbox.write("good.dmg", good);
    sandbox.write("cut.dmg", good.substr(0, good.size() / 2));
    sandbox.write("checksum.dmg", image({{"file", {.data = "content"}}}, {.tableError = 1}));
    sandbox.write("fat.dmg",
                  std::string(54, '\0') + "FAT16   " + std::string(448, '\0') + "\x55\xaa" + std::string(512, '\0'));
    sandbox.write("encrypted.dmg", TestImage::encrypted(good, "secret"));
    sandbox.write("licensed.dmg", licensed());
    sandbox.write("both.dmg", TestImage::encrypted(licensed(), "secret"));
    sandbox.write("full/file", "");
    const struct {
        const char* image;
        std::string input;
        Names more;
        std::string error;
    } cases[] = {
        {"none.dmg", "", {}, "Cannot read none.dmg: No such file or directory"},
        {"cut.dmg", "", {}, "cut.dmg: disk image: "},
        {"checksum.dmg", "", {}, "checksum.dmg: disk image: the checksum of the table "},
        {"fat.dmg", "", {}, "fat.dmg: disk image: FAT volumes are not supported"},
        {"encrypted.dmg", "secret", {}, "the image is encrypted and needs a password"},
        {"encrypted.dmg", "", {"-stdinpass"}, "the image is encrypted and needs a password"},
        {"encrypted.dmg", "secrets", {"-stdinpass"}, "the password is wrong"},
        {"licensed.dmg", "", {}, "the image has a licence agreement that must be accepted"},
        {"licensed.dmg", "n\n", {}, "the licence agreement was not accepted"},
        {"licensed.dmg", "yesterday\n", {}, "the licence agreement was not accepted"},
        {"licensed.dmg", "y\n", {}, ""},
        {"licensed.dmg", "YES", {}, ""},
        {"encrypted.dmg", "secret\n", {"-stdinpass"}, ""},
        {"both.dmg", std::string("secret\0Yes\n", 11), {"-stdinpass"}, ""},
    };
    for (const auto& each : cases) {
        const Outcome outcome = attach(each.image, each.input, each.more);
        EXPECT_EQ(outcome.output.find("Be kind.\n") == 0, std::string(each.image).find_first_of("lb") == 0);
        EXPECT_EQ(outcome.output.find('\x1b'), std::string::npos);
        EXPECT_EQ(outcome.status, each.error.empty() ? 0 : 1) << outcome.errors;
        EXPECT_EQ(hdiutil({"detach", "mnt"}).status, outcome.status == 0 ? 0 : 1);
        if (each.error.empty()) continue;
        EXPECT_EQ(outcome.errors.find("hdiutil: attach failed - " + each.error), 0U) << outcome.errors;
        EXPECT_EQ(outcome.errors.find('\n'), outcome.errors.size() - 1) << outcome.errors;
    }
    for (const auto& [folder, reason] : {std::pair("full", "Directory not empty"),
                                         {"full/file", "Not a directory"},
                                         {"none/mnt", "No such file or directory"}}) {
        const Outcome outcome = hdiutil({"attach", "good.dmg", "-mountpoint", folder});
        EXPECT_EQ(outcome.status, 1);
        EXPECT_NE(outcome.errors.find(reason), std::string::npos) << outcome.errors;
    }
    EXPECT_EQ(hdiutil({"attach", "checksum.dmg", "-mountpoint", "new"}).status, 1);
    EXPECT_EQ(namesIn(mountPoint), Names{});
    EXPECT_EQ(namesIn(sandbox.url()), (Names{"both.dmg", "checksum.dmg", "cut.dmg", "encrypted.dmg", "fat.dmg", "full",
                                             "good.dmg", "licensed.dmg", "mnt", "state"}));
    for (const Names& wrong : {Names{"attach", "good.dmg", "-readwrite"},
                               {"attach", "good.dmg", "-mountpoint"},
                               {"attach", "good.dmg", "cut.dmg"},
                               {"detach"},
                               {"eject", "mnt"},
                               {}}) {
        EXPECT_EQ(hdiutil(wrong).status, 64);
    }
}

TEST_F(Hdiutil, leavesFoldersAloneThatAreNotItsOwn) {
    sandbox.write("a.dmg", image());
    ASSERT_EQ(attach("a.dmg").status, 0);
    EXPECT_EQ(attach("a.dmg").errors,
              "hdiutil: attach failed - Cannot attach at " + mountPoint.string() + ": Device or resource busy\n");
    ASSERT_EQ(hdiutil({"attach", "a.dmg", "-mountpoint", "other"}).status, 0);
    FileManager::removeItem(mountPoint);
    sandbox.write("mnt/mine", "");
    sandbox.write("state/corvane/mounts/disk9.plist", "damaged");
    ::chmod((sandbox / "state/corvane/mounts/disk9.plist").c_str(), 0600);
    EXPECT_EQ(mountCount(), 1U);
    EXPECT_EQ(namesIn(sandbox / "state/corvane/mounts"), (Names{"disk5.plist", "disk9.plist", "lock"}));
    EXPECT_EQ(hdiutil({"detach", "mnt", "-force"}).status, 1);
    EXPECT_EQ(hdiutil({"detach", "disk4"}).status, 1);
    EXPECT_EQ(hdiutil({"detach", "other"}).status, 0);
    EXPECT_FALSE(FileManager::fileExists(sandbox / "other"));
    EXPECT_EQ(namesIn(mountPoint), Names{"mine"});
}

TEST_F(Hdiutil, emptiesFoldersWithFewOpenFiles) {
    std::string path = "d";
    for (int depth = 1; depth < 250; ++depth) path += "/d";
    sandbox.write("a.dmg", image({{path, {.mode = 040555}}}));
    ASSERT_EQ(attach("a.dmg").status, 0);
    const auto outcome = TestSupport::run(
        {"sh", "-c", "ulimit -n 300; exec \"$0\" detach mnt", TestSupport::program("libexec/corvane/hdiutil").string()},
        {.environment = {state()}, .folder = sandbox.url()});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
}

TestTree manyFiles() {
    TestTree tree;
    for (int number = 0; number < 4000; ++number) tree["Folder/" + std::to_string(number)].data = "content";
    return tree;
}

TEST_F(Hdiutil, leavesNothingWhenTerminated) {
    sandbox.write("a.dmg", image(manyFiles()));
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        EXPECT_EQ(resume(startAttach("a.dmg"), number), 128 + number);
        EXPECT_EQ(namesIn(mountPoint), Names{});
        EXPECT_EQ(namesIn(sandbox.url()), (Names{"a.dmg", "mnt"}));
    }
}

TEST_F(Hdiutil, letsOneOfTwoHaveAMountPoint) {
    sandbox.write("a.dmg", image(manyFiles()));
    sandbox.write("b.dmg", image());
    const pid_t slow = startAttach("a.dmg");
    EXPECT_EQ(attach("b.dmg").status, 0);
    EXPECT_EQ(resume(slow), 1);
    EXPECT_EQ(TestSupport::read(mountPoint / "Folder/file"), "content");
    EXPECT_EQ(mountCount(), 1U);
    EXPECT_EQ(namesIn(sandbox.url()), (Names{"a.dmg", "b.dmg", "mnt", "state"}));
}

TEST_F(Hdiutil, keepsGenuineTickets) {
    std::string signature, ticket = "no ticket";
    appendBigEndian(signature, 0xfade0cc0U, 4);
    for (const std::uint32_t number : {37U, 1U, 0x10002U, 20U, 0xfade0b01U, 17U}) appendBigEndian(signature, number, 4);
    sandbox.write("forged.dmg", image({}, {.codeSignature = signature + ticket}));
    EXPECT_EQ(attach("forged.dmg").status, 0);
    EXPECT_EQ(hdiutil({"detach", "mnt"}).status, 0);
    EXPECT_FALSE(FileManager::fileExists(sandbox / "state/corvane/tickets"));
    CORVANE_REQUIRE_SAMPLES();
    EXPECT_EQ(attach(*TestSupport::samples() / "dmg/karabiner-vhid-0.20.2-ticketonly-apfs.dmg").status, 0);
    EXPECT_EQ(namesIn(sandbox / "state/corvane/tickets").size(), 1U);
}

} // namespace
} // namespace corvane
