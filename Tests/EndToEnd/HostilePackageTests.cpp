// Packages made to harm whoever opens them: each is refused with one line, or comes back as it was, and nothing outside
// of the job's own folders changes.

#include "Platform/Formats/Pbzx/Writer.hpp"
#include "Support/FileManager.hpp"
#include "Tests/EndToEnd/HostilePackage.hpp"
#include "Tests/EndToEnd/SigningMachine.hpp"

#include <sys/stat.h>

#include <algorithm>

namespace corvane {
namespace {

using namespace TestSupport;
using namespace HostilePackage;
using Strings = std::vector<std::string>;

/// What must come of a package: a part of the reason why it is refused, or "" when it passes.
struct Case {
    std::string name;
    std::string package;
    /// The reason that `pkgutil --expand-full` gives.
    std::string expansion;
    /// The reason that the job gives when expansion succeeds.
    std::string job;
};

class HostilePackageTest : public testing::Test {
  protected:
    HostilePackageTest() {
        machine.sandbox().write("canary", "untouched");
        machine.sandbox().write("temporary/canary", "untouched");
        machine.sandbox().write("home/canary/file", "untouched");
    }

    void expectRefusal(const std::string& errors, const std::string& reason) const {
        EXPECT_NE(errors.find(reason), std::string::npos) << errors;
        EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 2) << errors;
        EXPECT_EQ(errors.find('\x1b'), std::string::npos) << errors;
    }

    void expand(const Case& each, const FileURL& package) const {
        const Outcome outcome =
            run({pkgutil.string(), "--expand-full", package.string(), (machine / "out/x").string()});
        EXPECT_EQ(outcome.status, each.expansion.empty() ? 0 : 1) << outcome.errors;
        if (!each.expansion.empty()) {
            expectRefusal(outcome.errors, each.expansion);
            EXPECT_EQ(machine.outputFiles(), Strings{});
        } else {
            const std::string foreign = "find " + (machine / "out/x").string() + " ! -uid $(id -u) -o ! -gid $(id -g)";
            EXPECT_EQ(run({"sh", "-c", foreign}).output, "");
        }
        FileManager::removeItem(machine / "out/x");
    }

    void recompress(const Case& each, const FileURL& package) const {
        const Outcome outcome = machine.corvane({"recompress", package.string(), "--allow-untrusted", "--unsigned",
                                                 "--output-dir", (machine / "out").string()});
        const std::string reason = each.expansion.empty() ? each.job : "Not a flat pkg, or expansion failed";
        ASSERT_EQ(outcome.status, reason.empty() ? 0 : 1) << outcome.errors;
        EXPECT_EQ(outcome.errors.find('\x1b'), std::string::npos) << outcome.errors;
        if (!reason.empty()) {
            EXPECT_NE(outcome.errors.find("\ncorvane: "), std::string::npos) << outcome.errors;
            EXPECT_NE(outcome.errors.find(reason), std::string::npos) << outcome.errors;
            EXPECT_EQ(machine.outputFiles(), Strings{});
            return;
        }
        EXPECT_EQ(run({source("Tests/EndToEnd/prove-recompressed").string(), package.string(), output.string()}).errors,
                  "");
        FileManager::removeItem(output);
    }

    void expectContained(const std::vector<Case>& cases) const {
        const std::string before = machine.snapshot();
        for (const Case& each : cases) {
            SCOPED_TRACE(each.name);
            const FileURL package = machine.sandbox().write("in/vendor.pkg", each.package);
            expand(each, package);
            recompress(each, package);
            EXPECT_EQ(machine.snapshot(), before);
        }
    }

    SigningMachine machine;
    const FileURL pkgutil = program("libexec/corvane/pkgutil");
    const FileURL output = machine / "out/vendor-recompressed.pkg";
    const std::string canary = (machine / "canary").string();
    const std::string canaryFolder = (machine / "home/canary").string();
};

TEST_F(HostilePackageTest, payloadsCannotLeaveTheirFolder) {
    const std::string notAName = "expected the name of a file";
    const auto with = [](const std::string& entries) { return component(payload(entries)); };
    const auto device = [&](unsigned type) { return with(entry("./device", "", {.mode = type | 0666})); };
    expectContained({
        {"dot-dot", with(entry("./../canary", "x")), notAName, ""},
        {"dot-dot inside", with(folder("./a") + entry("./a/../../canary", "x")), notAName, ""},
        {"dot-dot folder", with(folder("./..", 0777)), notAName, ""},
        {"absolute", with(entry(canary, "x")), notAName, ""},
        {"absolute behind a dot", with(entry("./" + canary, "x")), notAName, ""},
        {"through a link", with(link("./l", canaryFolder) + entry("./l/file", "x")), "Cannot open the folder", ""},
        {"through a link to dots", with(link("./l", "../../..") + entry("./l/canary", "x")), "Cannot open the folder",
         ""},
        {"through a link in a folder", with(folder("./a") + link("./a/l", "..") + entry("./a/l/x", "x")),
         "Cannot open the folder", ""},
        {"file upon a link", with(link("./l", canary) + entry("./l", "x")), "File exists", ""},
        {"folder upon a link", with(link("./l", canaryFolder) + folder("./l", 0777)), "File exists", ""},
        {"link upon a folder", with(folder("./l") + link("./l", canaryFolder) + entry("./l/file", "x")), "File exists",
         ""},
        {"link upon a file", with(entry("./l", "x") + link("./l", canary)), "File exists", ""},
        {"hard link to a link",
         with(link("./l", canary) + entry("./a", "x", {.inode = 7, .links = 2}) +
              entry("./l", "x", {.inode = 7, .links = 2})),
         "File exists", ""},
        {"hard links that disagree",
         with(entry("./a", "x", {.inode = 7, .links = 2}) + entry("./b", "y", {.inode = 7, .links = 2})),
         "different contents", ""},
        {"root is a link", component(payload(entry("./a", "x"), link(".", canaryFolder))), "File exists", ""},
        {"root is a file", component(payload("", entry(".", "x"))), "File exists", ""},
        {"links that lead out stay links", with(link("./l", canaryFolder) + link("./m", "../../../../etc/passwd")), "",
         ""},
        {"character device", device(0020000), "neither a file", ""},
        {"block device", device(0060000), "neither a file", ""},
        {"fifo", device(0010000), "neither a file", ""},
        {"socket", device(0140000), "neither a file", ""},
        {"set-id", with(entry("./s", "x", {.mode = 0106755})), "", ""},
        {"no root", component(payload(folder("./a") + entry("./a/b", "x"), "")), "", ""},
        {"nothing at all", component(payload("", "")), "", ""},
    });
}

TEST_F(HostilePackageTest, namesAreBytesThatMeanNothing) {
    const auto named = [](const std::string& name) { return component(payload(entry("./" + name, name))); };
    std::string tree;
    for (const char* name : {"-rf", "--root", "$(touch x)", "a'b", "line\nfeed", "bell\a", "\x1b[31mred", "\xff\xfe",
                             " blanks ", "name", "NAME", "caf\xc3\xa9", "cafe\xcc\x81", "\\", "*", "._lonely"}) {
        tree += entry(std::string("./") + name, name);
    }
    expectContained({
        {"odd names", component(payload(tree)), "", ""},
        {"255 bytes", named(std::string(255, 'n')), "", ""},
        {"256 bytes", named(std::string(256, 'n')), "at most 255 bytes", ""},
        {"empty", component(payload(entry("./a//b", "x"))), "expected the name of a file", ""},
        {"twice", component(payload(entry("./a", "x") + entry("./a", "x"))), "File exists", ""},
        {"twice, to steer a terminal", component(payload(entry("./\x1b[2J\n", "x") + entry("./\x1b[2J\n", "x"))),
         "File exists", ""},
        {"line feed in the reason", component(payload(entry("./\x1b[2J\n\n", "", {.mode = 0010644}))), "neither a file",
         ""},
        {"values like options",
         component(payload(entry("./a", "x")), "<pkg-info identifier=\"--nopayload\" version=\"--analyze\" "
                                               "install-location=\"--root\"><payload/></pkg-info>"),
         "", ""},
        {"values of several lines",
         component(payload(entry("./a", "x")),
                   "<pkg-info identifier=\"a&#10;&quot;&lt;\" version=\"1&#9;\"><payload/></pkg-info>"),
         "", ""},
    });
}

TEST_F(HostilePackageTest, archivesHoldWhatPackagesHold) {
    Archive archive;
    const std::string list = archive.file("Bom", "");
    const int number = archive.last();
    const std::string info = archive.file("PackageInfo", plainPackageInfo) + list;
    const std::string good = archive.file("Payload", payload(entry("./a", "x")));
    const auto with = [&](const std::string& elements) { return archive.bytes(info + elements); };
    const std::string file = archive.file("a", "x");
    const std::string linked = "is a link";
    std::string deep;
    for (int level = 0; level < 300; ++level) deep = archive.folder("d", deep);
    expectContained({
        {"dot-dot", with(archive.file("..", "x")), "expected the name of a file", ""},
        {"slash", with(archive.file("../canary", "x")), "expected the name of a file", ""},
        {"absolute", with(archive.file(canary, "x")), "expected the name of a file", ""},
        {"twice", with(good + archive.link("l", canaryFolder) + archive.folder("l", file)), "twice in a folder", ""},
        {"entries in a link", with(good + archive.element("l", "symlink", "<link>/tmp</link>" + file)), "no folder",
         ""},
        {"linked payload", with(archive.link("Payload", canaryFolder)), linked, ""},
        {"linked scripts", with(good + archive.link("Scripts", canaryFolder)), linked, ""},
        {"linked description", archive.bytes(good + archive.link("PackageInfo", canary)), linked, ""},
        {"linked list",
         archive.bytes(archive.file("PackageInfo", plainPackageInfo) + good + archive.link("Bom", canary)), linked, ""},
        {"hard link to nothing", with(good + archive.hardLink("x", 999999)), "does not exist", ""},
        {"payload by another name", with(archive.hardLink("Payload", number)), "Payload is no file", ""},
        {"scripts by another name", with(good + archive.hardLink("Scripts", number)), "Scripts is no file", ""},
        {"payload as a folder", with(archive.folder("Payload", file)), "Payload is no file", ""},
        {"scripts as a folder", with(good + archive.folder("Scripts", file)), "Scripts is no file", ""},
        {"payload of nothing", with(archive.element("Payload", "file", "")), "expected a cpio archive", ""},
        {"scripts of nothing", with(good + archive.element("Scripts", "file", "")), "expected a cpio archive", ""},
        {"description as a folder", archive.bytes(good + archive.folder("PackageInfo", file)), "",
         "Cannot parse PackageInfo"},
        {"no description", archive.bytes(good), "", "Missing PackageInfo"},
        {"list as a folder",
         archive.bytes(archive.file("PackageInfo", plainPackageInfo) + good + archive.folder("Bom", file)), "",
         "Is a directory"},
        {"payload in segments", with(archive.file("LargeSegmentedPayload", payload(""))), "payload in segments", ""},
        {"fifo", with(good + archive.element("p", "fifo", "")), "neither a file", ""},
        {"device", with(good + archive.element("p", "character special", "<device><major>1</major></device>")),
         "neither a file", ""},
        {"socket", with(good + archive.element("p", "socket", "")), "neither a file", ""},
        {"scripts in scripts",
         with(good + archive.file("Scripts", payload(folder("./Scripts") + entry("./Scripts/Scripts", "x")))), "", ""},
        {"scripts that lead out", with(good + archive.file("Scripts", payload(link("./postinstall", canary)))), "", ""},
        {"scripts through a link",
         with(good + archive.file("Scripts", payload(link("./l", canaryFolder) + entry("./l/file", "x")))),
         "Cannot open the folder", ""},
        {"attributes",
         with(good +
              archive.element("a", "file", "<ea id='1'><name>user.x</name><offset>0</offset><length>5</length></ea>")),
         "", "top-level package layout"},
        {"what no component has", with(good + file), "", "top-level package layout"},
        {"scripts alone",
         archive.bytes(archive.file("PackageInfo", plainPackageInfo) +
                       archive.file("Scripts", payload(entry("./postinstall", "x")))),
         "", ""},
        {"deep", with(good + deep), "too deep", ""},
    });
}

TEST_F(HostilePackageTest, sizesAreHeldAgainstWhatComes) {
    const std::string zeros(20'000'000, '\0');
    const std::string bomb = payload(entryOfSize(1000, "./a") + zeros);
    const auto pbzx = [](const std::string& bytes) {
        std::string result;
        Pbzx::Writer writer([&](std::string_view piece) { result += piece; }, 1);
        writer.write(bytes);
        writer.finish();
        return result;
    };
    const auto patched = [](std::string bytes, std::size_t at, const std::string& patch) {
        return bytes.replace(at, patch.size(), patch);
    };
    const std::string sound = payload(entry("./a", std::string(100000, 'a')));
    const std::string blocks = pbzx(folder(".") + entry("./a", "x") + entry("TRAILER!!!", ""));
    Archive archive;
    const auto xar = [&](const std::string& data, std::uint64_t size) {
        return archive.bytes(archive.file("PackageInfo", plainPackageInfo) +
                             archive.compressedFile("Payload", data, size));
    };
    const std::string huge = "<data><offset>20</offset><length>1</length><size>9223372036854775808</size></data>";
    expectContained({
        {"more than the entry says", component(bomb), "cpio: offset ", ""},
        {"pbzx, more than the entry says", component(pbzx(folder(".") + entryOfSize(1000, "./a") + zeros)),
         "cpio: offset ", ""},
        {"pbzx, a longer block", component(patched(blocks, 12, std::string("\0\0\0\0\0\0\0\x40", 8))),
         "pbzx: chunk at offset 12", ""},
        {"pbzx, a block of 2^63", component(patched(blocks, 12, "\x80")), "pbzx: offset ", ""},
        {"less than the entry says", component(payload(entryOfSize(1000, "./a"))), "cpio: ", ""},
        {"8 GiB that are not there", component(payload(entryOfSize((std::uint64_t{1} << 33) - 1, "./a"))),
         "Could not open package", ""},
        {"zeros without end",
         component(Gzip::compressed(folder(".") + entry("TRAILER!!!", "") + zeros, Gzip::Framing::gzip, 6)),
         "fewer zeros", ""},
        {"a trailer with data",
         component(Gzip::compressed(folder(".") + entryOfSize(1U << 30, "TRAILER!!!"), Gzip::Framing::gzip, 6)),
         "trailer without data", ""},
        {"xar, more than it says", archive.bytes(archive.compressedFile("a", zeros, 1000)), "found more bytes", ""},
        {"xar, less than it says", xar(payload(""), std::uint64_t{1} << 63), "more bytes, found the end", ""},
        {"xar, stored 2^63", archive.bytes(archive.element("a", "file", huge)), "expected equal sizes", ""},
        {"truncated", component(sound.substr(0, sound.size() / 2)), "gzip: offset ", ""},
        {"flipped", component(patched(sound, sound.size() / 2, "?!?!")), "gzip: offset ", ""},
        {"something behind the end", component(sound + "x"), "gzip: offset ", ""},
    });
}

TEST_F(HostilePackageTest, documentsReachNothingOutside) {
    const auto withDistribution = [](const std::string& inner, const std::string& doctype = "") {
        return product("<?xml version=\"1.0\"?>" + doctype + "<installer-gui-script>" + inner +
                       "</installer-gui-script>");
    };
    const auto reference = [&](const std::string& text) {
        return withDistribution("<pkg-ref id=\"com.example.tool\">" + text + "</pkg-ref>");
    };
    const std::string bomb = [] {
        std::string text = "<!DOCTYPE a [<!ENTITY e0 \"0123456789\">";
        for (int level = 1; level < 12; ++level) {
            text += "<!ENTITY e" + std::to_string(level) + " \"";
            for (int copy = 0; copy < 10; ++copy) text += "&e" + std::to_string(level - 1) + ";";
            text += "\">";
        }
        return text + "]>";
    }();
    const std::string external = "<!DOCTYPE a [<!ENTITY e SYSTEM \"file://" + canary + "\">]>";
    std::string lists;
    for (int level = 0; level < 100000; ++level) lists += "<array>";
    const auto application = [](const std::string& list) {
        return component(
            payload(folder("./A.app") + folder("./A.app/Contents") + entry("./A.app/Contents/Info.plist", list)));
    };
    expectContained({
        {"as it should be", reference("#Tool.pkg"), "", ""},
        {"above", reference("#../../x.pkg"), "", "x.pkg is neither in"},
        {"above, by a name that is there", reference("#../../Tool.pkg"), "", "installer refuses to read"},
        {"elsewhere", reference("file:///etc/x.pkg"), "", "x.pkg is neither in"},
        {"encoded slash", reference("#..%2F..%2Fx.pkg"), "", "x.pkg is neither in"},
        {"encoded dots", reference("#%2E%2E"), "", "expected the name of a file"},
        {"encoded NUL", reference("#Tool.pkg%00x"), "", "expected the name of a file"},
        {"entity bomb", withDistribution("<title>&e11;</title>", bomb), "", "Distribution: "},
        {"external entity", withDistribution("<title>&e;</title>", external), "", "Distribution: "},
        {"external declarations",
         withDistribution("<title>&e;</title>", "<!DOCTYPE a SYSTEM \"file://" + canary + "\">"), "", "Distribution: "},
        {"entity bomb in a component", component(payload(""), bomb + "<pkg-info identifier=\"&e11;\" version=\"1\"/>"),
         "", "PackageInfo"},
        {"external entity in a component",
         component(payload(""), external + "<pkg-info identifier=\"a\" version=\"1\">&e;</pkg-info>"), "",
         "PackageInfo"},
        {"external entity in the table of contents",
         Xar::TestArchive::bytes(external + Xar::TestArchive::contents("<file><name>&e;</name></file>"), ""), "entity",
         ""},
        {"a component like an option",
         product("<installer-gui-script><pkg-ref id=\"a\">#-rf.pkg</pkg-ref></installer-gui-script>", "-rf.pkg"), "",
         ""},
        {"a component of dots",
         product("<installer-gui-script><pkg-ref id=\"a\">#..pkg</pkg-ref></installer-gui-script>", "..pkg"), "", ""},
        {"a component without a name",
         product("<installer-gui-script><pkg-ref id=\"a\">#.pkg</pkg-ref></installer-gui-script>", ".pkg"), "", ""},
        {"lists in lists", application("<plist>" + lists), "", ""},
        {"a binary list of itself",
         application(
             std::string("bplist00\xa1\0\x08\0\0\0\0\0\0\1\1\0\0\0\0\0\0\0\1\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x0a", 43)),
         "", ""},
    });
}

/// What describes a bundle may be a link, but only to what the payload itself holds.
TEST_F(HostilePackageTest, bundlesAreDescribedByThePayloadAlone) {
    const std::string list = "<plist><dict><key>CFBundleIdentifier</key><string>a</string></dict></plist>";
    const FileURL pipe = machine / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const std::string secret =
        machine.sandbox()
            .write("secret", "<plist><dict><key>SourceVersion</key><string>secret</string></dict></plist>")
            .string();
    const auto application = [&](const std::string& name, const std::string& target) {
        const std::string contents = folder("./A.app") + folder("./A.app/Contents");
        const std::string own = name == "Info.plist" ? "" : entry("./A.app/Contents/Info.plist", list);
        return component(payload(contents + own + link("./A.app/Contents/" + name, target)));
    };
    expectContained({
        {"pipe", application("Info.plist", pipe.string()), "", ""},
        {"pipe with versions", application("version.plist", pipe.string()), "", ""},
        {"device with versions", application("version.plist", "/dev/zero"), "", ""},
    });
    const FileURL package = machine.sandbox().write("in/vendor.pkg", application("version.plist", secret));
    ASSERT_EQ(run({pkgutil.string(), "--expand-full", package.string(), (machine / "out/x").string()}).status, 0);
    ASSERT_EQ(run({program("libexec/corvane/pkgbuild").string(), "--root", (machine / "out/x/Payload").string(),
                   "--identifier", "a", (machine / "out/y.pkg").string()})
                  .status,
              0);
    ASSERT_EQ(
        run({pkgutil.string(), "--expand", (machine / "out/y.pkg").string(), (machine / "out/y").string()}).status, 0);
    EXPECT_EQ(read(machine / "out/y/PackageInfo").find("secret"), std::string::npos);
}

TEST_F(HostilePackageTest, expansionLeavesRoomOnTheDisk) {
    const auto files = [](int count) {
        std::string entries;
        for (int number = 0; number < count; ++number) entries += entry("./" + std::to_string(number), "");
        return component(payload(entries));
    };
    const auto fileOf = [](std::size_t size) { return component(payload(entry("./a", std::string(size, '\0')))); };
    struct Disk {
        std::string name;
        std::string options;
        std::string package;
        std::string expected;
    };
    const Disk disks[] = {{"bytes", "size=8m", fileOf(7'000'000), "0\nx\n"},
                          {"bytes of the reserve", "size=8m", fileOf(8'100'000), "1\n"},
                          {"files", "nr_inodes=1000", files(900), "0\nx\n"},
                          {"files of the reserve", "nr_inodes=1000", files(960), "1\n"}};
    const auto withMounts = [](const std::string& script) {
        return run({"unshare", "--user", "--map-root-user", "--mount", "sh", "-c", script});
    };
    const std::string disk = (machine / "out").string();
    const std::string package = (machine / "in/vendor.pkg").string();
    if (withMounts("mount -t tmpfs none " + disk).status != 0) {
        GTEST_SKIP() << "this system allows nobody to mount a small disk";
    }
    for (const Disk& each : disks) {
        SCOPED_TRACE(each.name);
        machine.sandbox().write("in/vendor.pkg", each.package);
        const Outcome outcome =
            withMounts("mount -t tmpfs -o " + each.options + " none " + disk + "; " + pkgutil.string() +
                       " --expand-full " + package + " " + disk + "/x; echo $?; ls -A " + disk);
        EXPECT_EQ(outcome.output, each.expected) << outcome.errors;
        const bool isFull = outcome.errors.find("No space left on device") != std::string::npos;
        EXPECT_EQ(isFull, each.expected == "1\n") << outcome.errors;
    }
}

/// Longer than any path that the system takes, and closed to its owner.
TEST_F(HostilePackageTest, nothingIsTooDeepToBeRemoved) {
    std::string path = ".";
    std::string folders;
    for (int level = 0; level < 40; ++level) {
        path += "/" + std::string(100, 'd');
        folders += folder(path, level < 30 ? 0755 : 0500);
    }
    expectContained({{"closed", component(payload(folders + entry(path + "/f", "x"))), "", "File name too long"},
                     {"closed, then an error", component(payload(folders + entry(path + "/f", "x", {.mode = 010644}))),
                      "neither a file", ""}});
}

} // namespace
} // namespace corvane
