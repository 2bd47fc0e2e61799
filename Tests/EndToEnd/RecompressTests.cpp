// The whole `recompress` job with the real portable tools, and what it leaves when things go wrong.

#include "Platform/Formats/Bom/Reader.hpp"
#include "Platform/Formats/Bom/Writer.hpp"
#include "Support/FileManager.hpp"
#include "Support/JSON.hpp"
#include "Tests/EndToEnd/SigningMachine.hpp"

#include <unistd.h>

namespace corvane {
namespace {

using namespace TestSupport;
using Strings = std::vector<std::string>;

class RecompressTest : public testing::Test {
  protected:
    Outcome recompress(const FileURL& package, const Strings& options = {}) const {
        Strings arguments{"recompress", package.string(), "--allow-untrusted", "--output-dir",
                          (machine / "out").string()};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return machine.corvane(arguments);
    }

    /// What a program that shares no code with ours says of the pair; empty when it finds no difference.
    static std::string disproof(const FileURL& vendor, const FileURL& rebuilt, const Strings& removed = {}) {
        Strings command{source("Tests/EndToEnd/prove-recompressed").string(), vendor.string(), rebuilt.string()};
        command.insert(command.end(), removed.begin(), removed.end());
        return run(command).errors;
    }

    FileURL output(const std::string& name) const { return machine / ("out/" + name + "-recompressed.pkg"); }
    static FileURL sample(const std::string& name) { return *samples() / "pkg" / (name + ".pkg"); }

    void atCall(const std::string& tool, int call, const std::string& script) const {
        for (const std::string& each : jobTools) machine.before(each, "");
        machine.before(tool, "if test $call = " + std::to_string(call) + "; then " + script + "; fi");
    }

    void expectNothingLeft() const {
        EXPECT_EQ(machine.outputFiles(), Strings{});
        EXPECT_EQ(machine.temporaryFiles(), Strings{});
    }

    SigningMachine machine;
    const FileURL example = source("Examples/Harbor Tools.pkg");
    const std::string interruptUs = "kill -INT " + std::to_string(::getpid());
};

/// The calls of a job on the example, which has two components, in order.
const std::vector<std::pair<std::string, int>> callsOfTheJob{
    {"pkgutil", 1}, {"spctl", 1},        {"pkgutil", 2},   {"pkgbuild", 1}, {"pkgbuild", 2},
    {"pkgutil", 3}, {"pkgutil", 4},      {"pkgbuild", 3},  {"pkgbuild", 4}, {"pkgutil", 5},
    {"pkgutil", 6}, {"productbuild", 1}, {"installer", 1}, {"pkgutil", 7},  {"diff", 1}};

TEST_F(RecompressTest, rebuildsTheExampleToTheSameBytesOnAnyNumberOfCores) {
    const std::string oneCore = "taskset -cp 0 $$ > /dev/null";
    for (const Strings& options : {Strings{"--unsigned"}, Strings{"--unsigned", "--legacy-compression"}}) {
        const Outcome outcome = recompress(example, options);
        ASSERT_EQ(outcome.status, 0) << outcome.errors;
        EXPECT_EQ(disproof(example, output("Harbor Tools")), "");
        const std::string first = read(output("Harbor Tools"));
        for (const std::string& tool : jobTools) machine.before(tool, oneCore);
        ASSERT_EQ(recompress(example, options).status, 0);
        EXPECT_TRUE(read(output("Harbor Tools")) == first) << options.back();
    }
    EXPECT_EQ(machine.temporaryFiles(), Strings{});
}

TEST_F(RecompressTest, printsWhatTheReadmeShows) {
    const Outcome outcome = recompress(example, {"--unsigned"});
    const std::string folder = (machine / "out").string();
    std::string shown = outcome.errors + outcome.output;
    shown.replace(shown.find(folder), folder.size(), "/tmp");
    // The order of a folder's entries, and so of the components, is the file system's.
    const std::string monitor = "    Rebuilt com.example.harbor.monitor (2.1)\n";
    const std::string setup = "    Rebuilt com.example.harbor.setup (2.1)\n";
    if (const auto at = shown.find(setup + monitor); at != std::string::npos) {
        shown.replace(at, setup.size() + monitor.size(), monitor + setup);
    }
    EXPECT_NE(read(source("README.md")).find(shown), std::string::npos) << shown;
}

TEST_F(RecompressTest, rebuildsAPackageOfScripts) {
    machine.sandbox().writeScript("scripts/postinstall", "exit 0");
    const FileURL package = machine / "in/Scripts.pkg";
    run({program("libexec/corvane/pkgbuild").string(), "--nopayload", "--identifier", "com.example.scripts",
         "--scripts", (machine / "scripts").string(), package.string()});
    for (const Strings& options : {Strings{"--unsigned"}, Strings{"--unsigned", "--legacy-compression"}}) {
        const Outcome outcome = recompress(package, options);
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        EXPECT_EQ(disproof(package, output("Scripts")), "");
    }
}

TEST_F(RecompressTest, rebuildsEveryRealPackage) {
    CORVANE_REQUIRE_SAMPLES();
    for (const FileURL& package : FileManager::contentsOfDirectory(*samples() / "pkg")) {
        if (pathExtension(package) != "pkg") continue;
        const std::string name = package.stem().string();
        SCOPED_TRACE(name);
        std::vector<Strings> compressions{{"--unsigned"}};
        const bool isVaried = name.starts_with("munki") || name.starts_with("ch34xvcp") || name.starts_with("outset");
        if (isVaried) compressions.push_back({"--unsigned", "--legacy-compression"});
        for (const Strings& options : compressions) {
            const Outcome outcome = recompress(package, options);
            if (name == "xar-empty-toc" || name == "xar-no-packageinfo") { // archives, but no packages
                EXPECT_TRUE(outcome.errors.ends_with("corvane: Missing PackageInfo in expand\n")) << outcome.errors;
                continue;
            }
            EXPECT_EQ(outcome.status, 0) << outcome.errors;
            EXPECT_EQ(disproof(package, output(name)), "");
        }
        std::filesystem::remove(output(name));
    }
    expectNothingLeft();
}

TEST_F(RecompressTest, signsWhatIsLeftOfARealProductAndTellsWhatItIs) {
    CORVANE_REQUIRE_SAMPLES();
    const std::string name = "munkitools-2.8.1.2847-unsigned";
    const Strings options{"--sign",
                          machine.identity(),
                          "--bundle-inventory",
                          "--remove-component-id",
                          "com.googlecode.munki.admin",
                          "--remove-component-id",
                          "com.googlecode.munki.launchd"};
    const Outcome outcome = recompress(sample(name), options);
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(
        disproof(sample(name), output(name), {"munkitools_admin-2.8.1.2847.pkg", "munkitools_launchd-2.0.0.1969.pkg"}),
        "");
    EXPECT_EQ(run({program("libexec/corvane/pkgutil").string(), "--check-signature", output(name).string()}).status, 0);
    const auto report = JSONValue::parse(read(machine / ("out/" + name + "-recompressed.changes.json")));
    EXPECT_EQ(report["removedComponents"][0]["identifier"], "com.googlecode.munki.admin");
    EXPECT_EQ(report["removedComponents"].size(), 2U);
    EXPECT_NE(read(machine / ("out/" + name + "-recompressed.bundles.txt"))
                  .find("com.googlecode.munki.ManagedSoftwareCenter"),
              std::string::npos);
    // The choices of what was removed are gone, and the rest installs without them.
    EXPECT_EQ(run({program("libexec/corvane/installer").string(), "-pkginfo", "-pkg", output(name).string()}).status,
              0);
    EXPECT_EQ(machine.outputFiles().size(), 3U);
}

TEST_F(RecompressTest, enforcesTheSizeThatIsAskedFor) {
    ASSERT_EQ(recompress(example, {"--unsigned"}).status, 0);
    const std::uint64_t size = FileManager::fileSize(output("Harbor Tools"));
    const auto below = [&](std::uint64_t limit) {
        return recompress(example, {"--unsigned", "--require-output-below", std::to_string(limit)});
    };
    EXPECT_EQ(below(size + 1).status, 0);
    FileManager::removeItem(output("Harbor Tools"));
    const std::string number = std::to_string(size);
    EXPECT_TRUE(below(size).errors.ends_with("corvane: Finished package is " + number +
                                             " bytes; required size is below " + number + " bytes\n"));
    expectNothingLeft();
}

/// A bill of materials whose files belong to somebody else.
std::string withOtherOwner(const std::string& bytes) {
    Bom::Reader reader(bytes);
    Bom::Writer writer;
    while (auto entry = reader.next()) {
        entry->userID = 501;
        writer.add(*entry);
    }
    std::string result;
    writer.finish([&](std::string_view piece) { result += piece; });
    return result;
}

TEST_F(RecompressTest, seesEveryDamageToTheResult) {
    const FileURL pkgutil = program("libexec/corvane/pkgutil");
    run({pkgutil.string(), "--expand", example.string(), (machine / "expanded").string()});
    machine.sandbox().write("other-bom", withOtherOwner(read(machine / "expanded/Monitor.pkg/Bom")));
    const std::string app = "'payload/Applications/Harbor Monitor.app/Contents/'";
    const std::string inPayload = "payload in Monitor.pkg";
    // Shell commands that change the rebuilt product, expanded in the current folder with the payload of Monitor.pkg
    // unpacked in "payload", and the difference that the proof must name.
    const std::pair<std::string, std::string> damages[] = {
        {"printf X | dd of=" + app + "Info.plist bs=1 seek=60 conv=notrunc 2> /dev/null", inPayload + ". "},
        {"chmod u-w " + app + "Info.plist", inPayload + " file metadata. "},
        {"ln -sfn Elsewhere payload/usr/local/bin/harbor-monitor", inPayload + ". "},
        {"rm -r " + app + "Resources", inPayload + ". "},
        {"touch payload/added", inPayload + ". "},
        {"chmod -x Monitor.pkg/Scripts/postinstall", "scripts in Monitor.pkg file metadata. "},
        {"cp ../other-bom Monitor.pkg/Bom", "payload BOM in Monitor.pkg (binary contents differ). "},
        {"sed -i 's/auth=\"root\"/auth=\"none\"/' Monitor.pkg/PackageInfo", "PackageInfo semantics in Monitor.pkg. "},
        {"sed -i 's/ auth/ minimumSystemVersion=\"11.0\" auth/' Setup.pkg/PackageInfo",
         "minimumSystemVersion in Setup.pkg. "},
        {"sed -i 's/<choice id/<choice visible=\"false\" id/' Distribution", "Distribution metadata. "},
        {"echo >> Resources/en.lproj/welcome.txt", "installer resources. "},
        {"touch Extra", "top-level package layout. "},
    };
    for (const auto& [script, difference] : damages) {
        SCOPED_TRACE(script);
        const FileURL work = machine / "damage";
        std::filesystem::remove_all(work);
        machine.sandbox().write(
            "damage.sh", "set -e\nfor last; do :; done\nreal='" + pkgutil.string() +
                             "'\n\"$real\" --expand \"$last\" " + work.string() + "\ncd " + work.string() +
                             "\nmkdir payload; (cd payload; gunzip < ../Monitor.pkg/Payload | cpio -idm --quiet)\n" +
                             script +
                             "\n(cd payload; find . | cpio -o -H odc --quiet | gzip -n) > Monitor.pkg/Payload; rm -r "
                             "payload\nrm \"$last\"; \"$real\" --flatten . \"$last\"\n");
        machine.before("productbuild",
                       "\"$real\" \"$@\" && sh '" + (machine / "damage.sh").string() + "' \"$@\"; exit $?");
        const Outcome outcome = recompress(example, {"--unsigned", "--legacy-compression"});
        EXPECT_EQ(outcome.status, 1);
        EXPECT_NE(outcome.errors.find("corvane: Recompression changed " + difference), std::string::npos)
            << outcome.errors;
        expectNothingLeft();
    }
}

TEST_F(RecompressTest, anyCallMayFailOrDieAndTheJobStillCleansUp) {
    for (std::size_t index = 2; index < callsOfTheJob.size(); ++index) { // what comes first only judges the input
        for (const char* script : {"exit 7", "kill -KILL $$"}) {
            atCall(callsOfTheJob[index].first, callsOfTheJob[index].second, script);
            const Outcome outcome = recompress(example, {"--unsigned"});
            EXPECT_EQ(outcome.status, 1) << callsOfTheJob[index].first << callsOfTheJob[index].second << outcome.errors;
            expectNothingLeft();
        }
    }
}

TEST_F(RecompressTest, anInterruptAtAnyCallLeavesNothing) {
    for (const auto& [tool, call] : callsOfTheJob) {
        atCall(tool, call, interruptUs + "; sleep 100");
        const Outcome outcome = recompress(example, {"--unsigned"});
        EXPECT_EQ(outcome.status, 130) << tool << call << outcome.errors;
        expectNothingLeft();
    }
}

} // namespace
} // namespace corvane
