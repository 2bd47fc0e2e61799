#include "Platform/Formats/Pbzx/Writer.hpp"
#include "Support/FileManager.hpp"
#include "Tests/Platform/Formats/Xar/ArchiveBuilder.hpp"
#include "Tests/TestSupport.hpp"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>

namespace corvane {
namespace {

using TestSupport::Sandbox;
namespace TestArchive = Xar::TestArchive;

const FileURL pkgutil = TestSupport::program("libexec/corvane/pkgutil");

TestSupport::Outcome expand(const FileURL& package, const FileURL& folder) {
    return TestSupport::run({pkgutil, "--expand", package, folder});
}

FileURL examplePackage() { return TestSupport::source("Examples/Harbor Tools.pkg"); }

std::size_t countEntries(const FileURL& folder) { return FileManager::contentsOfDirectory(folder).size(); }

std::string treeDifference(const FileURL& left, const FileURL& right) {
    return TestSupport::run({"diff", "-r", "--no-dereference", left, right}).output;
}

TEST(Pkgutil, expandsTheExampleToItsSources) {
    const Sandbox sandbox;
    const auto outcome = expand(examplePackage(), sandbox / "out");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.output + outcome.errors, "");
    const FileURL sources = TestSupport::source("Examples/HarborTools");
    for (const char* name : {"Monitor", "Setup"}) {
        const FileURL component = sandbox / "out" / (std::string(name) + ".pkg");
        EXPECT_EQ(treeDifference(sources / name / "scripts", component / "Scripts"), "");
        EXPECT_TRUE(std::filesystem::is_regular_file(component / "Payload"));
    }
    EXPECT_EQ(treeDifference(sources / "Resources", sandbox / "out/Resources"), "");
    const auto mode = [&](const char* path) { return std::filesystem::status(sandbox / "out" / path).permissions(); };
    EXPECT_EQ(mode("."), std::filesystem::perms(0700));
    EXPECT_EQ(mode("Monitor.pkg/Scripts/postinstall"), std::filesystem::perms(0755));
    EXPECT_EQ(mode("Monitor.pkg/Scripts/settings.sh"), std::filesystem::perms(0644));
}

TEST(Pkgutil, printsNamesWithoutControlCharacters) {
    const Sandbox sandbox;
    const FileURL forged = sandbox / "x\":\n   Status: signed Apple Software\n.pkg";
    std::filesystem::copy_file(examplePackage(), forged);
    const auto outcome = TestSupport::run({pkgutil, "--check-signature", forged});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(std::count(outcome.output.begin(), outcome.output.end(), '\n'), 2) << outcome.output;
}

TEST(Pkgutil, failsWhenItsAnswerCannotBeWritten) {
    const std::string command = "'" + pkgutil.string() + "' --check-signature '" + examplePackage().string() + "'";
    const auto outcome = TestSupport::run({"sh", "-c", command + " > /dev/full"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.errors.find("Could not open package: "), 0U) << outcome.errors;
    EXPECT_NE(outcome.errors.find("Cannot write standard output: No space left on device"), std::string::npos);
}

TEST(Pkgutil, flattensNoDeeperThanItCanExpand) {
    const Sandbox sandbox;
    const auto flattenedDepth = [&](std::size_t depth) {
        FileManager::removeItem(sandbox / "tree");
        FileURL folder = sandbox / "tree";
        for (std::size_t level = 0; level < depth; ++level) folder /= "d";
        FileManager::createDirectory(folder);
        return TestSupport::run({pkgutil, "--flatten", sandbox / "tree", sandbox / "deep.pkg"}).status;
    };
    EXPECT_EQ(flattenedDepth(240), 0);
    EXPECT_EQ(expand(sandbox / "deep.pkg", sandbox / "out").status, 0);
    FileManager::removeItem(sandbox / "deep.pkg");
    EXPECT_EQ(flattenedDepth(241), 1);
    EXPECT_FALSE(FileManager::fileExists(sandbox / "deep.pkg"));
}

TEST(Pkgutil, expandsRealPackagesLikeOtherPrograms) {
    CORVANE_REQUIRE_SAMPLES();
    for (const FileURL& url : FileManager::contentsOfDirectory(*TestSupport::samples() / "pkg")) {
        SCOPED_TRACE(url);
        const Sandbox sandbox;
        EXPECT_EQ(expand(url, sandbox / "out").status, 0);
        TestSupport::run({"7zz", "x", "-txar", "-y", "-o" + (sandbox / "other").string(), url});
        FileManager::removeItem(sandbox / "other/[TOC].xml");
        // Archives of scripts are folders here; unpack the other program's with yet another one.
        TestSupport::run(
            {"sh", "-c",
             "find . -name Scripts -type f | while read -r file; do mv \"$file\" archive && mkdir \"$file\" && "
             "gunzip -c archive | (cd \"$file\" && cpio -idm --quiet); rm archive; done"},
            {.folder = sandbox / "other"});
        EXPECT_EQ(treeDifference(sandbox / "other", sandbox / "out"), "");
        EXPECT_EQ(TestSupport::run({pkgutil, "--flatten", sandbox / "out", sandbox / "flat.pkg"}).status, 0);
        EXPECT_EQ(expand(sandbox / "flat.pkg", sandbox / "again").status, 0);
        EXPECT_EQ(treeDifference(sandbox / "out", sandbox / "again"), "");
    }
}

/// Name, type, mode, time in seconds, number of links and target of everything in a folder; not of the folder itself,
/// which other programs leave alone.
std::string treeDetails(const FileURL& folder) {
    return TestSupport::run({"sh", "-c", "find . -mindepth 1 -printf '%p %y %m %Ts %n %l\\n' | sort"},
                            {.folder = folder})
        .output;
}

TEST(Pkgutil, expandsRealPayloadsLikeOtherPrograms) {
    CORVANE_REQUIRE_SAMPLES();
    for (const FileURL& url : FileManager::contentsOfDirectory(*TestSupport::samples() / "pkg")) {
        SCOPED_TRACE(url);
        const Sandbox sandbox;
        const auto outcome = TestSupport::run({pkgutil, "--expand-full", url, sandbox / "out"});
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        EXPECT_EQ(expand(url, sandbox / "other").status, 0);
        for (const auto& each : std::filesystem::recursive_directory_iterator(sandbox / "other")) {
            if (each.path().filename() != "Payload" || !each.is_regular_file()) continue;
            const FileURL payload = each.path();
            const FileURL expanded = sandbox / "out" / std::filesystem::relative(payload, sandbox / "other");
            std::filesystem::rename(payload, sandbox / "archive");
            FileManager::createDirectory(payload);
            TestSupport::run({"bsdtar", "-xp", "--no-same-owner", "-f", sandbox / "archive"}, {.folder = payload});
            EXPECT_EQ(treeDetails(expanded), treeDetails(payload));
        }
        EXPECT_EQ(treeDifference(sandbox / "other", sandbox / "out"), "");
    }
}

/// A tree with what payloads hold beside plain files.
void makePayloadTree(const Sandbox& sandbox, const FileURL& tree) {
    sandbox.writeScript("tree/usr/bin/tool", "exit 0\n");
    sandbox.write("tree/usr/share/large", std::string(300000, 'l'));
    sandbox.write("tree/usr/share/._large", "attributes");
    std::filesystem::create_hard_link(tree / "usr/share/large", tree / "usr/share/same");
    std::filesystem::create_symlink("/etc/hosts", tree / "usr/hosts");
    std::filesystem::permissions(tree / "usr/bin/tool", std::filesystem::perms(04755));
    std::filesystem::permissions(tree / "usr/share", std::filesystem::perms(0555));
    for (const char* name : {"usr/bin/tool", "usr/share", "usr", "."}) {
        std::filesystem::last_write_time(tree / name,
                                         std::filesystem::file_time_type(std::chrono::seconds(-5000000000)));
    }
}

TEST(Pkgutil, expandsPayloadsOfEveryForm) {
    const Sandbox sandbox;
    const FileURL tree = sandbox / "tree";
    makePayloadTree(sandbox, tree);
    const std::string archive =
        TestSupport::run({"sh", "-c", "find . -depth | sort | cpio -o -H odc --quiet"}, {.folder = tree}).output;
    std::string pbzx;
    Pbzx::Writer writer([&](std::string_view bytes) { pbzx += bytes; });
    writer.write(archive);
    writer.finish();
    const std::string gzip = TestSupport::run({"gzip", "-c"}, {.input = archive}).output;
    int number = 0;
    for (const std::string& payload : {archive, gzip, pbzx}) {
        SCOPED_TRACE(++number);
        const std::string name = std::to_string(number);
        sandbox.write(name + "/Product.pkg/PackageInfo", "<pkg-info/>");
        sandbox.write(name + "/Product.pkg/Payload", payload);
        sandbox.write(name + "/Other/Payload", "no component, no payload");
        sandbox.write(name + "/Payload/is", "a folder");
        EXPECT_EQ(TestSupport::run({pkgutil, "--flatten", sandbox / name, sandbox / (name + ".pkg")}).status, 0);
        const auto outcome = TestSupport::run({pkgutil, "--expand-full", sandbox / (name + ".pkg"), sandbox / "out"});
        ASSERT_EQ(outcome.status, 0) << outcome.errors;
        EXPECT_EQ(outcome.output + outcome.errors, "");
        EXPECT_EQ(treeDifference(tree, sandbox / "out/Product.pkg/Payload"), "");
        EXPECT_EQ(treeDetails(tree), treeDetails(sandbox / "out/Product.pkg/Payload"));
        EXPECT_EQ(std::filesystem::last_write_time(tree),
                  std::filesystem::last_write_time(sandbox / "out/Product.pkg/Payload"));
        EXPECT_EQ(TestSupport::read(sandbox / "out/Other/Payload"), "no component, no payload");
        EXPECT_EQ(TestSupport::read(sandbox / "out/Payload/is"), "a folder");
        FileManager::removeItem(sandbox / "out");
    }
}

TEST(Pkgutil, leavesNothingOfAPayloadThatItRefuses) {
    const Sandbox sandbox;
    sandbox.write("tree/file", std::string(100000, 'f'));
    const std::string archive =
        TestSupport::run({"cpio", "-o", "-H", "odc", "--quiet"}, {.folder = sandbox / "tree", .input = "file\n"})
            .output;
    const std::string gzip = TestSupport::run({"gzip", "-c"}, {.input = archive}).output;
    std::string outside = archive;
    outside.replace(outside.find("file"), 4, "/tmp");
    struct Case {
        std::string payload;
        std::string reason;
    };
    const std::vector<Case> cases{{"pbze1234", "found \"pbze12\""},
                                  {"", "found \"\""},
                                  {gzip.substr(0, gzip.size() - 1), "gzip: offset "},
                                  {gzip + gzip, "gzip: offset "},
                                  {archive.substr(0, 50000), "cpio: offset "},
                                  {outside, "cpio: "},
                                  {std::string("pbzx\0\0\0\0\1\0\0\0", 12) + archive, "pbzx: offset 12"}};
    for (const Case& each : cases) {
        sandbox.write("package/PackageInfo", "<pkg-info/>");
        sandbox.write("package/Payload", each.payload);
        const FileURL package = sandbox / "bad.pkg";
        FileManager::removeItem(package);
        EXPECT_EQ(TestSupport::run({pkgutil, "--flatten", sandbox / "package", package}).status, 0);
        const auto outcome = TestSupport::run({pkgutil, "--expand-full", package, sandbox / "out"});
        EXPECT_EQ(outcome.status, 1) << each.reason;
        EXPECT_EQ(outcome.errors.find("Could not open package for expansion: " + package.string() + "\nPayload: "), 0U);
        EXPECT_NE(outcome.errors.find(each.reason), std::string::npos) << outcome.errors;
        EXPECT_EQ(countEntries(sandbox.url()), 3U);
    }
}

TEST(Pkgutil, leavesNoFolderForADamagedPackage) {
    const std::string sound = TestSupport::read(examplePackage());
    const Sandbox sandbox;
    const auto refuses = [&](const std::string& bytes) {
        const FileURL package = sandbox.write("damaged.pkg", bytes);
        const auto outcome = expand(package, sandbox / "out");
        EXPECT_EQ(outcome.status, 1);
        const std::string first = "Could not open package for expansion: " + package.string() + "\n";
        EXPECT_EQ(outcome.errors.substr(0, first.size()), first);
        EXPECT_GT(outcome.errors.size(), first.size() + 1) << "no reason is given";
        EXPECT_EQ(countEntries(sandbox.url()), 1U);
    };
    for (std::size_t at = 0; at < sound.size(); at += 61) {
        SCOPED_TRACE(at);
        refuses(sound.substr(0, at));
        std::string flipped = sound;
        flipped[at] = static_cast<char>(flipped[at] ^ 0x10);
        refuses(flipped);
    }
}

TEST(Pkgutil, refusesWhatItCannotPlace) {
    const Sandbox sandbox;
    FileManager::createDirectory(sandbox / "folder");
    sandbox.write("file", "");
    for (const char* name : {"folder", "folder/", "file"}) {
        const auto outcome = expand(examplePackage(), sandbox / name);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_NE(outcome.errors.find("File exists"), std::string::npos) << outcome.errors;
    }
    EXPECT_EQ(expand(examplePackage(), sandbox / "missing/folder").status, 1);
    EXPECT_EQ(expand(sandbox / "missing.pkg", sandbox / "new").status, 1);
    EXPECT_EQ(expand(sandbox / "folder", sandbox / "new").status, 1);
    EXPECT_EQ(TestSupport::run({pkgutil, "--flatten", sandbox / "missing", sandbox / "new.pkg"}).status, 1);
    EXPECT_EQ(TestSupport::run({pkgutil, "--expand", examplePackage()}).status, 64);
    EXPECT_EQ(TestSupport::run({pkgutil, "--what"}).status, 64);
    EXPECT_EQ(countEntries(sandbox.url()), 2U);
}

TEST(Pkgutil, expandsLinksAndOnlyArchivesOfScripts) {
    const Sandbox sandbox;
    const std::string stored = TestArchive::storedFile("Scripts", "plain");
    const std::string link = "<file id='7'><type>symlink</type><link type='broken'>/etc</link><name>link</name></file>";
    const std::string folder =
        "<file id='5'><type>directory</type><mode>0111</mode><name>Resources</name>" + stored + link + "</file>";
    const std::string hardLink = "<file id='6'><type link='1'>hardlink</type><name>again</name></file>";
    sandbox.write("links.pkg", TestArchive::bytes(TestArchive::contents(folder + hardLink), "plain"));
    EXPECT_EQ(expand(sandbox / "links.pkg", sandbox / "out").status, 0);
    EXPECT_EQ(TestSupport::read(sandbox / "out/Resources/Scripts"), "plain");
    EXPECT_EQ(TestSupport::read(sandbox / "out/again"), "plain");
    EXPECT_EQ(std::filesystem::read_symlink(sandbox / "out/Resources/link"), "/etc");
    EXPECT_EQ(std::filesystem::status(sandbox / "out/Resources").permissions(), std::filesystem::perms(0711));
    for (const std::string& elements :
         {stored, link, folder + "<file id='6'><type link='9'>hardlink</type><name>again</name></file>",
          std::string("<file id='1'><type>fifo</type><name>pipe</name></file>")}) {
        sandbox.write("bad.pkg", TestArchive::bytes(TestArchive::contents(elements), "plain"));
        EXPECT_EQ(expand(sandbox / "bad.pkg", sandbox / "bad").status, 1) << elements;
        EXPECT_FALSE(FileManager::fileExists(sandbox / "bad"));
    }
}

/// A package with a payload of 2 GiB that takes no space itself.
FileURL hugePackage(const Sandbox& sandbox) {
    const std::string size = std::to_string(std::uint64_t{1} << 31);
    const std::string bytes =
        TestArchive::bytes(TestArchive::contents("<file id='1'><name>Payload</name><data><offset>20</offset><length>" +
                                                 size + "</length><size>" + size + "</size></data></file>"),
                           "");
    const FileURL url = sandbox.write("huge.pkg", bytes);
    std::filesystem::resize_file(url, bytes.size() + (std::uint64_t{1} << 31));
    return url;
}

TEST(Pkgutil, removesEverythingWhenItIsToldToStop) {
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        const Sandbox sandbox;
        const FileURL package = hugePackage(sandbox);
        const pid_t child = ::fork();
        if (child == 0) {
            ::execl(pkgutil.c_str(), "pkgutil", "--expand", package.c_str(), (sandbox / "out").c_str(), nullptr);
            ::_exit(127);
        }
        int status = 0;
        pid_t ended = 0;
        while (ended == 0 && countEntries(sandbox.url()) < 2) ended = ::waitpid(child, &status, WNOHANG);
        ASSERT_EQ(ended, 0) << "it ended by itself, with the status " << status;
        ::kill(child, number);
        ::waitpid(child, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == number) << status;
        EXPECT_EQ(countEntries(sandbox.url()), 1U);
    }
}

} // namespace
} // namespace corvane
