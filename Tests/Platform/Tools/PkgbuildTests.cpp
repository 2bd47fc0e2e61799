#include "Platform/Formats/Bom/Reader.hpp"
#include "Support/FileManager.hpp"
#include "Support/PropertyList.hpp"
#include "Support/XML.hpp"
#include "Tests/TestSupport.hpp"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <set>

namespace corvane {
namespace {

using TestSupport::Outcome;
using TestSupport::Sandbox;
using Strings = std::vector<std::string>;

Outcome runTool(const std::string& name, const Strings& arguments, const TestSupport::RunOptions& options = {}) {
    Strings command{TestSupport::program("libexec/corvane/" + name)};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return TestSupport::run(command, options);
}

Outcome pkgbuild(const Strings& arguments) { return runTool("pkgbuild", arguments); }

/// Builds the sandbox's root into its "out.pkg" and expands that to "out".
void buildAndExpand(const Sandbox& sandbox, Strings arguments) {
    arguments.insert(arguments.end(), {"--identifier", "com.example.test", sandbox / "out.pkg"});
    const Outcome outcome = pkgbuild(arguments);
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
    ASSERT_EQ(runTool("pkgutil", {"--expand", sandbox / "out.pkg", sandbox / "out"}).status, 0);
}

std::string informationList(const std::string& identifier, const std::string& others = "") {
    return "<plist version='1.0'><dict><key>CFBundleIdentifier</key><string>" + identifier + "</string>" + others +
           "</dict></plist>";
}

std::string entry(const std::string& key, const std::string& value) {
    return "<key>" + key + "</key><string>" + value + "</string>";
}

/// The ids in a list of a PackageInfo.
Strings listed(const XML::Document& info, const std::string& list) {
    Strings result;
    for (const XML::Node& id : info.query("/pkg-info/" + list + "/bundle/@id")) result.push_back(id.text());
    std::sort(result.begin(), result.end());
    return result;
}

/// The elements that describe bundles, as one text each.
Strings described(const XML::Document& info) {
    Strings result;
    for (const XML::Node& bundle : info.query("/pkg-info/bundle")) {
        result.emplace_back();
        for (const auto& [name, value] : bundle.attributes()) result.back() += name + "=" + value + " ";
    }
    std::sort(result.begin(), result.end());
    return result;
}

/// A tree with every kind of bundle, and folders that look like one.
void makeBundles(const Sandbox& sandbox) {
    const std::string versions = entry("CFBundleShortVersionString", "2.1") + entry("CFBundleVersion", "210");
    sandbox.write("root/Applications/.Quay.app/Contents/Info.plist", informationList("quay", versions));
    sandbox.write("root/Applications/.Quay.app/Contents/Helpers/Crane.app/Contents/Info.plist",
                  informationList("crane", entry("CFBundleVersion", "3")));
    const FileURL linked = sandbox / "root/Library/Linked.framework";
    sandbox.write("root/Library/Linked.framework/Versions/A/Resources/Info.plist", informationList("linked"));
    std::filesystem::create_directory_symlink("A", linked / "Versions/Current");
    std::filesystem::create_directory_symlink("Versions/Current/Resources", linked / "Resources");
    sandbox.write("root/Library/Real.framework/Resources/Info.plist", informationList("real"));
    sandbox.write("root/Library/Real.framework/Versions/A/Resources/Info.plist", informationList("real a"));
    sandbox.write("root/Library/nameless/Contents/Info.plist", informationList("", entry("CFBundleVersion", "1")));
    sandbox.write("root/Library/broken.app/Contents/Info.plist", "no list");
    sandbox.write("root/Library/empty.app/Info.plist", informationList("flat"));
    sandbox.write("elsewhere/Info.plist", informationList("elsewhere"));
    FileManager::createDirectory(sandbox / "root/Library/outside.app");
    std::filesystem::create_directory_symlink(sandbox / "elsewhere", sandbox / "root/Library/outside.app/Contents");
    std::filesystem::copy_file(TestSupport::source("Fuzz/Seeds/PropertyList/binary.plist"), [&] {
        FileManager::createDirectory(sandbox / "root/Library/binary/Contents");
        return sandbox / "root/Library/binary/Contents/Info.plist";
    }());
}

TEST(Pkgbuild, listsBundlesAndTheirDefaultRules) {
    const Sandbox sandbox;
    makeBundles(sandbox);
    const Outcome outcome = pkgbuild({"--analyze", "--root", sandbox / "root", sandbox / "list.plist"});
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.output, "pkgbuild: Inferring bundle components from contents of " + (sandbox / "root").string() +
                                  "\npkgbuild: Writing new component property list to " +
                                  (sandbox / "list.plist").string() + "\n");
    const std::string child = "<dict><key>BundleHasStrictIdentifier</key><true/>" + entry("BundleOverwriteAction", "") +
                              entry("RootRelativeBundlePath", "Applications/.Quay.app/Contents/Helpers/Crane.app") +
                              "</dict>";
    const std::string checked = "<key>BundleIsVersionChecked</key><true/>" + entry("BundleOverwriteAction", "upgrade");
    const std::string list =
        "<plist><array><dict><key>BundleHasStrictIdentifier</key><true/><key>BundleIsRelocatable</key><true/>" +
        checked + "<key>ChildBundles</key><array>" + child + "</array>" +
        entry("RootRelativeBundlePath", "Applications/.Quay.app") + "</dict><dict>" + checked +
        entry("RootRelativeBundlePath", "Library/Linked.framework") + "</dict><dict>" + checked +
        "<key>ChildBundles</key><array><dict>" + entry("BundleOverwriteAction", "") +
        entry("RootRelativeBundlePath", "Library/Real.framework/Versions/A") + "</dict></array>" +
        entry("RootRelativeBundlePath", "Library/Real.framework") + "</dict><dict>" + checked +
        entry("RootRelativeBundlePath", "Library/binary") + "</dict></array></plist>";
    EXPECT_EQ(TestSupport::read(sandbox / "list.plist"),
              PropertyList::serializedXML(PropertyList::parse(list, "expected")));
    FileManager::createDirectory(sandbox / "none");
    ASSERT_EQ(pkgbuild({"--analyze", "--root", sandbox / "none", sandbox / "none.plist"}).status, 0);
    EXPECT_EQ(PropertyList::read(sandbox / "none.plist"), PropertyList::Value{PropertyList::Array{}});
}

TEST(Pkgbuild, describesBundlesByDefaultRules) {
    const Sandbox sandbox;
    makeBundles(sandbox);
    buildAndExpand(sandbox, {"--root", sandbox / "root"});
    const XML::Document info = XML::Document::read(sandbox / "out/PackageInfo");
    EXPECT_EQ(described(info),
              (Strings{"id=com.example.harbor path=./Library/binary ",
                       "id=crane CFBundleVersion=3 path=./Applications/.Quay.app/Contents/Helpers/Crane.app ",
                       "id=linked path=./Library/Linked.framework ",
                       "id=real a path=./Library/Real.framework/Versions/A ", "id=real path=./Library/Real.framework ",
                       "path=./Applications/.Quay.app id=quay CFBundleShortVersionString=2.1 CFBundleVersion=210 "}));
    const Strings outermost{"com.example.harbor", "linked", "quay", "real"};
    EXPECT_EQ(listed(info, "bundle-version"), outermost);
    EXPECT_EQ(listed(info, "upgrade-bundle"), outermost);
    EXPECT_EQ(listed(info, "update-bundle"), Strings{});
    EXPECT_EQ(listed(info, "strict-identifier"), (Strings{"crane", "quay"}));
    EXPECT_EQ(listed(info, "relocate"), Strings{"quay"});
}

TEST(Pkgbuild, obeysAComponentList) {
    const Sandbox sandbox;
    makeBundles(sandbox);
    sandbox.write("list.plist",
                  "<plist><array><dict>" + entry("RootRelativeBundlePath", "Applications/.Quay.app") +
                      entry("BundleOverwriteAction", "update") + "<key>BundleIsRelocatable</key><true/></dict><dict>" +
                      entry("RootRelativeBundlePath", "Library/Missing.app") + "</dict><dict>" +
                      entry("RootRelativeBundlePath", "Library/Linked.framework") +
                      "<key>BundleIsRelocatable</key><false/><key>BundleIsVersionChecked</key><true/></dict></array>"
                      "</plist>");
    buildAndExpand(sandbox, {"--component-plist", sandbox / "list.plist", "--root", sandbox / "root"});
    const XML::Document info = XML::Document::read(sandbox / "out/PackageInfo");
    EXPECT_EQ(described(info).size(), 2U);
    EXPECT_EQ(listed(info, "bundle-version"), Strings{"linked"});
    EXPECT_EQ(listed(info, "upgrade-bundle"), Strings{});
    EXPECT_EQ(listed(info, "update-bundle"), Strings{"quay"});
    EXPECT_EQ(listed(info, "strict-identifier"), Strings{});
    EXPECT_EQ(listed(info, "relocate"), Strings{"quay"});
}

TEST(Pkgbuild, refusesBrokenComponentLists) {
    const Sandbox sandbox;
    FileManager::createDirectory(sandbox / "root");
    const std::string path = entry("RootRelativeBundlePath", "a.app");
    for (const std::string& broken :
         {std::string("<dict/>"), std::string("<array><string>a.app</string></array>"),
          std::string("<array><dict/></array>"),
          "<array><dict>" + path + entry("BundleOverwriteAction", "replace") + "</dict></array>",
          "<array><dict>" + path + entry("BundleIsRelocatable", "no") + "</dict></array>",
          "<array><dict>" + path + entry("BundlePreInstallScriptPath", "run") + "</dict></array>",
          "<array><dict>" + path + entry("ChildBundles", "b.app") + "</dict></array>"}) {
        const FileURL list = sandbox.write("list.plist", "<plist>" + broken + "</plist>");
        const Outcome outcome =
            pkgbuild({"--root", sandbox / "root", "--component-plist", list, "--identifier", "a", sandbox / "out.pkg"});
        EXPECT_EQ(outcome.status, 1) << broken;
        EXPECT_EQ(outcome.errors.find("pkgbuild: error: " + list.string() + ": "), 0U) << outcome.errors;
    }
}

/// A payload with all that is not just a file: links, companions, several names, odd modes, an empty folder.
void makeOddRoot(const Sandbox& sandbox) {
    sandbox.write("root/bin/run", std::string(700, 'r'));
    ::chmod((sandbox / "root/bin/run").c_str(), 04755);
    std::filesystem::create_symlink("../bin/run", sandbox / "root/bin/latest");
    sandbox.write("root/data/one", "the same file");
    std::filesystem::create_hard_link(sandbox / "root/data/one", sandbox / "root/data/two");
    for (const char* name : {"._bin", "data/._one", "data/._._one", "data/._stray", ".DS_Store", "CVS/empty"}) {
        sandbox.write(std::string("root/") + name, name);
    }
    FileManager::createDirectory(sandbox / "root/shared/._shared");
    ::chmod((sandbox / "root/shared").c_str(), 01777);
}

TEST(Pkgbuild, packsATreeThatOtherProgramsRestore) {
    const Sandbox sandbox;
    makeOddRoot(sandbox);
    sandbox.writeScript("scripts/preinstall", "exit 0\n");
    sandbox.write("scripts/helpers/text", "helper");
    std::filesystem::create_symlink("preinstall", sandbox / "scripts/postinstall");
    buildAndExpand(sandbox, {"--scripts", sandbox / "scripts", "--install-location", "/opt", "--root", sandbox / "root",
                             "--version", "1.2"});
    const std::string payload = TestSupport::read(sandbox / "out/Payload");
    EXPECT_EQ(payload.substr(0, 10), std::string("\x1f\x8b\x08\0\0\0\0\0\0\x03", 10));
    FileManager::createDirectory(sandbox / "by cpio");
    const Outcome restored = TestSupport::run({"sh", "-c", "gunzip -c < ../out/Payload | cpio -idm --quiet"},
                                              {.folder = sandbox / "by cpio"});
    EXPECT_EQ(restored.status, 0) << restored.errors;
    const Outcome difference =
        TestSupport::run({"diff", "-r", "--no-dereference", sandbox / "root", sandbox / "by cpio"});
    EXPECT_EQ(difference.output, "");
    EXPECT_TRUE(std::filesystem::equivalent(sandbox / "by cpio/data/one", sandbox / "by cpio/data/two"));
    EXPECT_EQ(TestSupport::run({"7zz", "t", "-txar", sandbox / "out.pkg"}).status, 0);
    const XML::Document info = XML::Document::read(sandbox / "out/PackageInfo");
    // Folders of 32 bytes an entry, blocks of 512: bin 1, run 2, latest 1, data 1, one 1, ._._one 1, ._stray 1,
    // .DS_Store 1, CVS 1, empty 1, shared 1, shared/._shared 1; companions nothing and the second name nothing.
    EXPECT_EQ(info.query("/pkg-info/payload/@installKBytes").at(0).text(), "7");
    EXPECT_EQ(info.query("/pkg-info/payload/@numberOfFiles").at(0).text(), "16");
    EXPECT_EQ(info.root().attribute("install-location"), "/opt");
    EXPECT_EQ(info.query("/pkg-info/scripts/*").size(), 2U);
    EXPECT_EQ(TestSupport::read(sandbox / "out/Scripts/helpers/text"), "helper");
}

std::string checksum(const std::string& text) {
    const std::string line = TestSupport::run({"cksum"}, {.input = text}).output;
    return line.substr(0, line.find(' '));
}

TEST(Pkgbuild, describesEveryEntryInTheBom) {
    const Sandbox sandbox;
    makeOddRoot(sandbox);
    buildAndExpand(sandbox, {"--root", sandbox / "root"});
    const std::string bytes = TestSupport::read(sandbox / "out/Bom");
    Bom::Reader reader(bytes);
    std::set<std::string> lines;
    while (const auto each = reader.next()) {
        char text[64];
        std::snprintf(text, sizeof text, " %o %u %llu %u", each->mode, each->userID + each->groupID,
                      static_cast<unsigned long long>(each->size), each->checksum);
        lines.insert(each->path + text);
    }
    EXPECT_EQ(lines.size(), 16U);
    for (const std::string& line :
         {std::string(". 40755 0 224 0"), "bin/run 104755 0 700 " + checksum(std::string(700, 'r')),
          "bin/latest 120755 0 10 " + checksum("../bin/run"), "data/two 100644 0 13 " + checksum("the same file"),
          std::string("._bin 40755 0 0 0"), std::string("data/._one 100644 0 0 0"),
          "data/._._one 100644 0 12 " + checksum("data/._._one"), std::string("shared 41777 0 96 0")}) {
        EXPECT_TRUE(lines.contains(line)) << line << "\n" << ::testing::PrintToString(lines);
    }
}

TEST(Pkgbuild, recordsTheArchitecturesOfPrograms) {
    using namespace std::string_literals;
    const Sandbox sandbox;
    FileManager::createDirectory(sandbox / "root");
    const std::string first(700, 'x');
    const std::string second(300'000, 'y');
    sandbox.write("root/a", "text");
    sandbox.write("root/fat", "\xCA\xFE\xBA\xBE\0\0\0\2"
                              "\1\0\0\7\x80\0\0\3\0\0\0\x30\0\0\2\xBC\0\0\0\2"
                              "\1\0\0\x0C\0\0\0\0\0\0\2\xEC\0\4\x93\xE0\0\0\0\2"s +
                                  first + second);
    buildAndExpand(sandbox, {"--root", sandbox / "root"});
    const std::string bytes = TestSupport::read(sandbox / "out/Bom");
    Bom::Reader reader(bytes);
    Strings found;
    while (const auto each = reader.next()) {
        for (const Bom::Architecture& slice : each->architectures) {
            found.push_back(each->path);
            for (const auto number : {slice.cpuType, slice.cpuSubtype, slice.size, slice.checksum}) {
                found.back() += " " + std::to_string(number);
            }
        }
    }
    EXPECT_EQ(found,
              (Strings{"fat 16777223 2147483651 700 " + checksum(first), "fat 16777228 0 300000 " + checksum(second)}));
}

TEST(Pkgbuild, compressesInBlocksForCurrentSystems) {
    const Sandbox sandbox;
    sandbox.write("root/large", std::string((17U << 20U) + 5, 'l'));
    buildAndExpand(sandbox, {"--root", sandbox / "root", "--compression", "latest", "--min-os-version", "12.0"});
    const std::string payload = TestSupport::read(sandbox / "out/Payload");
    EXPECT_EQ(payload.substr(0, 4), "pbzx");
    // Behind magic, block size and two lengths stands the first block, a whole xz stream.
    sandbox.write("block.xz", payload.substr(28, payload.find("\xfd"
                                                              "7zXZ",
                                                              29) -
                                                     16 - 28));
    const Outcome block = TestSupport::run({"xz", "-dc", sandbox / "block.xz"});
    EXPECT_EQ(block.status, 0) << block.errors;
    EXPECT_EQ(block.output.size(), std::size_t{1} << 24U);
    EXPECT_EQ(block.output.substr(0, 6), "070707");
    const XML::Document info = XML::Document::read(sandbox / "out/PackageInfo");
    EXPECT_EQ(info.root().attribute("minimumSystemVersion"), "12.0");
}

TEST(Pkgbuild, buildsWithoutAPayload) {
    const Sandbox sandbox;
    sandbox.writeScript("scripts/postinstall", "exit 0\n");
    buildAndExpand(sandbox, {"--nopayload", "--compression", "latest", "--min-os-version", "12.0", "--scripts",
                             sandbox / "scripts"});
    EXPECT_EQ(FileManager::contentsOfDirectory(sandbox / "out").size(), 2U);
    const XML::Document info = XML::Document::read(sandbox / "out/PackageInfo");
    EXPECT_EQ(info.query("/pkg-info/payload[@numberOfFiles='0'][@installKBytes='0']").size(), 1U);
    EXPECT_EQ(info.query("/pkg-info/scripts/postinstall[@file='./postinstall']").size(), 1U);
    EXPECT_EQ(info.root().attribute("minimumSystemVersion"), "12.0");
}

TEST(Pkgbuild, makesTheSameBytesOfTheSameTree) {
    const Sandbox sandbox;
    const auto build = [&](const std::string& epoch, const std::string& compression) {
        const Outcome outcome = runTool("pkgbuild",
                                        {"--root", sandbox / "root", "--identifier", "a", "--compression", compression,
                                         "--min-os-version", "12.0", sandbox / "out.pkg"},
                                        {.environment = {"SOURCE_DATE_EPOCH=" + epoch}});
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        return TestSupport::read(sandbox / "out.pkg");
    };
    for (const char* compression : {"legacy", "latest"}) {
        FileManager::removeItem(sandbox / "root");
        makeOddRoot(sandbox);
        const std::string first = build("5", compression);
        EXPECT_EQ(build("5", compression), first);
        EXPECT_NE(build("6", compression), first);
        // Another copy, made in another order and at another time.
        std::filesystem::rename(sandbox / "root", sandbox / "old");
        TestSupport::run({"cp", "-R", "--preserve=mode,links", sandbox / "old", sandbox / "root"});
        FileManager::removeItem(sandbox / "old");
        EXPECT_EQ(build("5", compression), first);
    }
}

TEST(Pkgbuild, refusesWrongCalls) {
    const Sandbox sandbox;
    FileManager::createDirectory(sandbox / "root");
    const std::string root = sandbox / "root";
    const std::string out = sandbox / "out.pkg";
    const std::vector<Strings> calls{{},
                                     {out},
                                     {"--root", root, out},
                                     {"--root", root, "--identifier", "a"},
                                     {"--root", root, "--identifier", "", out},
                                     {"--root", "", "--identifier", "a", out},
                                     {"--root", root, "--identifier", "a", out, out},
                                     {"--root", root, "--root", root, "--identifier", "a", out},
                                     {"--root", root, "--identifier", "a", "--what", out},
                                     {"--root", root, "--identifier", "a", "--compression", "latest", out},
                                     {"--root", root, "--identifier", "a", "--compression", "best", out},
                                     {"--root", root, "--identifier", "a", "--ownership", "preserve", out},
                                     {"--root", root, "--nopayload", "--identifier", "a", out},
                                     {"--analyze", out},
                                     {"--analyze", "--root", root, "--identifier", "a", out}};
    for (const Strings& call : calls) {
        const Outcome outcome = pkgbuild(call);
        EXPECT_EQ(outcome.status, 64) << ::testing::PrintToString(call);
        EXPECT_NE(outcome.errors.find("Usage: pkgbuild"), std::string::npos);
    }
    EXPECT_FALSE(FileManager::fileExists(out));
}

TEST(Pkgbuild, leavesNothingWhenItFails) {
    const Sandbox sandbox;
    sandbox.write("root/file", "");
    sandbox.write("name/a\x01.app/Contents/Info.plist", informationList("a"));
    FileManager::createDirectory(sandbox / "pipe");
    ::mkfifo((sandbox / "pipe/fifo").c_str(), 0600);
    FileManager::createDirectory(sandbox / "temporary");
    FileURL deep = sandbox / "deep";
    for (int level = 0; level < 513; ++level) deep /= "d";
    FileManager::createDirectory(deep);
    const auto path = [&](const char* name) { return (sandbox / name).string(); };
    const std::vector<std::pair<Strings, std::string>> cases{
        {{"--root", path("missing"), path("out.pkg")},
         "Specified root path \"" + path("missing") + "\" does not exist."},
        {{"--root", path("root/file"), path("out.pkg")}, "Cannot read"},
        {{"--root", path("pipe"), path("out.pkg")}, path("pipe/fifo") + " is neither a file, a folder nor a link"},
        {{"--root", path("deep"), path("out.pkg")}, "expected at most 512 nested folders"},
        {{"--root", path("name"), path("out.pkg")}, "PackageInfo"},
        {{"--root", path("root"), "--scripts", path("missing"), path("out.pkg")}, "Cannot read"},
        {{"--root", path("root"), "--component-plist", path("missing"), path("out.pkg")}, path("missing")},
        {{"--root", path("root"), path("missing/out.pkg")},
         "Cannot write package to \"" + path("missing/out.pkg") + "\". (No such file or directory)"},
        {{"--root", path("root"), path("root")}, "Cannot write package to"}};
    const std::size_t before = FileManager::contentsOfDirectory(sandbox.url()).size();
    for (auto [arguments, problem] : cases) {
        arguments.insert(arguments.begin(), {"--identifier", "a"});
        const Outcome outcome = runTool("pkgbuild", arguments, {.environment = {"TMPDIR=" + path("temporary")}});
        EXPECT_EQ(outcome.status, 1) << problem;
        EXPECT_EQ(outcome.errors.find("pkgbuild: error: "), 0U) << outcome.errors;
        EXPECT_NE(outcome.errors.find(problem), std::string::npos) << outcome.errors;
        EXPECT_EQ(FileManager::contentsOfDirectory(sandbox / "temporary").size(), 0U);
        EXPECT_EQ(FileManager::contentsOfDirectory(sandbox.url()).size(), before);
    }
}

TEST(Pkgbuild, removesEverythingWhenItIsToldToStop) {
    const Sandbox sandbox;
    FileManager::createDirectory(sandbox / "temporary");
    std::filesystem::resize_file(sandbox.write("root/huge", ""), std::uint64_t{4} << 30U);
    const pid_t child = ::fork();
    if (child == 0) {
        ::setenv("TMPDIR", (sandbox / "temporary").c_str(), 1);
        ::execl(TestSupport::program("libexec/corvane/pkgbuild").c_str(), "pkgbuild", "--root",
                (sandbox / "root").c_str(), "--identifier", "a", (sandbox / "out.pkg").c_str(), nullptr);
        ::_exit(127);
    }
    int status = 0;
    pid_t ended = 0;
    while (ended == 0 && FileManager::contentsOfDirectory(sandbox / "temporary").empty()) {
        ended = ::waitpid(child, &status, WNOHANG);
    }
    ASSERT_EQ(ended, 0) << "it ended by itself, with the status " << status;
    ::kill(child, SIGTERM);
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
    EXPECT_TRUE(FileManager::contentsOfDirectory(sandbox / "temporary").empty());
    EXPECT_FALSE(FileManager::fileExists(sandbox / "out.pkg"));
}

} // namespace
} // namespace corvane
