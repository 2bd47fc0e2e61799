#include "Services/PackagingPipeline.hpp"
#include "Services/PackagingPipeline/ApplicationTrust.hpp"
#include "Services/PackagingPipeline/DiskImageMounting.hpp"
#include "Support/FileManager.hpp"
#include "Support/PropertyList.hpp"
#include "Tests/FakeTools.hpp"
#include "Tests/Services/EventLine.hpp"

namespace corvane {
namespace {

using TestSupport::FakeTools;
using TestSupport::line;
using TestSupport::read;
using TestSupport::Sandbox;
using Lines = std::vector<std::string>;

std::string infoOf(const std::string& image, const std::string& mountPoint, const std::string& writeable = "<false/>") {
    return "<plist><dict><key>images</key><array><dict><key>image-path</key><string>" + image +
           "</string><key>writeable</key>" + writeable +
           "<key>system-entities</key><array><dict/><dict><key>mount-point</key><string>" + mountPoint +
           "</string></dict></array></dict></array></dict></plist>";
}

/// A system on which disk images are folders and everything is trusted.
class DMGToPkgTest : public testing::Test {
  protected:
    DMGToPkgTest() {
        fakes.tool("hdiutil", R"(case $1 in attach) cp -R "$2.d/." "$7" ;; info) cat "$here/info" ;; esac)");
        fakes.tool("codesign", "test $1 != -dvv || printf 'a\\nTeamIdentifier=TEAM\\n' >&2");
        fakes.tool("spctl", "");
        fakes.tool("ditto", "cp -R \"$1\" \"$2\"");
        fakes.tool("xattr", "exit 1");
        fakes.tool("plutil", "test $2 = CFBundleIdentifier && echo com.example.tool || echo 1.2_3-b");
        fakes.tool("installer", "");
        fakes.tool("pkgbuild", R"(if [ "$1" = --analyze ]; then cp "$here/list" "$4"; exit; fi
cp "$4" "$here/used"; ls -A "$2" > "$here/staged"; for package; do :; done; cat "$2"/*/Contents/file > "$package")");
        fakes.sandbox().write("in/Image.dmg", "");
        fakes.sandbox().write("in/Image.dmg.d/My Tool.app/Contents/file", "content");
        fakes.sandbox().write("list",
                              "<plist><array><dict><key>RootRelativeBundlePath</key><string>My Tool.app</string>"
                              "<key>ChildBundles</key><array><dict/></array></dict></array></plist>");
        FileManager::createDirectory(fakes.sandbox() / "out");
    }

    FileURL image() const { return fakes.sandbox() / "in/Image.dmg"; }

    using Ask = std::function<void(PipelineConfiguration&)>;
    using Answer = std::function<void(const PackagingPipeline::Job&)>;

    /// All events of a job, the work folder as WORK.
    /// @param answer what the front end does when it is asked to help
    Lines events(const Ask& ask = {}, const Answer& answer = {}) const {
        PipelineConfiguration asked{.action = PipelineAction::dmgToPkg,
                                    .inputURL = image(),
                                    .outputDirectory = fakes.sandbox() / "out",
                                    .signingIdentity = std::nullopt,
                                    .modernCompression = false,
                                    .minOSVersion = "12.0"};
        if (ask) ask(asked);
        const auto job = PackagingPipeline(asked).start();
        Lines lines;
        while (const auto event = job.events.next()) {
            lines.push_back(anonymous(line(*event)));
            if (lines.back() == "mount" && answer) answer(job);
        }
        job.waitUntilDone();
        for (const std::string& call : fakes.calls()) {
            const auto at = call.find(marker);
            const auto start = call.rfind('|', at) + 1;
            if (at == std::string::npos) continue;
            EXPECT_FALSE(FileManager::fileExists(call.substr(start, at + length - start)));
        }
        return lines;
    }

    Lines calls() const {
        Lines result;
        for (const std::string& call : fakes.calls()) result.push_back(anonymous(call));
        return result;
    }

    static std::string anonymous(std::string text) {
        for (std::size_t at; (at = text.find(marker)) != std::string::npos;) {
            const std::size_t start = text.find_last_of("| ", at) + 1;
            text.replace(start, at + length - start, "WORK");
        }
        return text;
    }

    static constexpr std::string_view marker = "/corvane-";
    static constexpr std::size_t length = marker.size() + 36;
    FakeTools fakes;
};

TEST_F(DMGToPkgTest, buildsAPackageOfTheOneApplication) {
    EXPECT_EQ(events(), (Lines{"> Mount disk image", "< Mount disk image", "Found My Tool.app", "> Verify input trust",
                               "Vendor signature valid (TeamIdentifier=TEAM)", "Gatekeeper assessment: accepted",
                               "identifier=com.example.tool version=1.2_3-b", "< Verify input trust", "> Stage payload",
                               "< Stage payload", "> Build package", "< Build package", "> Sign",
                               "Skipping signing - pkg is UNSIGNED (not usable for PreStage/MDM commands)", "< Sign",
                               "> Verify result", "< Verify result", "finished My Tool-1.2_3-b.pkg"}));
    const std::string app = "WORK/mnt/My Tool.app";
    EXPECT_EQ(
        calls(),
        (Lines{"hdiutil|attach|" + image().string() + "|-nobrowse|-readonly|-noautoopen|-mountpoint|WORK/mnt",
               "codesign|--verify|--deep|--strict|" + app, "codesign|-dvv|" + app, "spctl|--assess|--type|exec|" + app,
               "plutil|-extract|CFBundleIdentifier|raw|-o|-|" + app + "/Contents/Info.plist",
               "plutil|-extract|CFBundleShortVersionString|raw|-o|-|" + app + "/Contents/Info.plist",
               "ditto|" + app + "|WORK/root/My Tool.app", "xattr|-dr|com.apple.quarantine|WORK/root/My Tool.app",
               "pkgbuild|--analyze|--root|WORK/root|WORK/component.plist",
               "pkgbuild|--root|WORK/root|--component-plist|WORK/component.plist|--identifier|com.example.tool|"
               "--version|1.2_3-b|--install-location|/Applications|WORK/unsigned.pkg",
               "installer|-pkginfo|-pkg|WORK/unsigned.pkg", "hdiutil|detach|WORK/mnt|-quiet"}));
    EXPECT_EQ(read(fakes.sandbox() / "out/My Tool-1.2_3-b.pkg"), "content");
    EXPECT_EQ(read(fakes.sandbox() / "staged"), "My Tool.app\n");
    const auto list = PropertyList::read(fakes.sandbox() / "used");
    const auto& bundle = std::get<PropertyList::Array>(list.content).at(0);
    const auto& child = std::get<PropertyList::Array>(bundle.find("ChildBundles")->content).at(0);
    EXPECT_EQ(*bundle.find("RootRelativeBundlePath"), PropertyList::Value{"My Tool.app"});
    EXPECT_EQ(*bundle.find("BundleIsRelocatable"), PropertyList::Value{false});
    EXPECT_EQ(*child.find("BundleIsRelocatable"), PropertyList::Value{false});

    events([](PipelineConfiguration& asked) { asked.modernCompression = true; });
    const std::string build = calls()[calls().size() - 3];
    EXPECT_NE(build.find("|/Applications|--compression|latest|--min-os-version|12.0|WORK/unsigned.pkg"),
              std::string::npos);
}

TEST_F(DMGToPkgTest, decidesOnTheApplicationsTrust) {
    const std::string metadata = "echo 'X: Resource Fork, Finder Information, or similar detritus not allowed' >&2; ";
    const std::string needsCopy = "Vendor image contains signature-incompatible Finder/resource metadata; validating a "
                                  "normalized copy";
    const std::string unsignedWarning = "WARNING: vendor app unsigned/invalid (continuing; quarantine kept)";
    const std::string team = "Vendor signature valid (TeamIdentifier=TEAM)";
    const std::string good = "case \"$1 $4\" in -d*) echo TeamIdentifier=TEAM >&2 ;; ";
    const struct {
        std::string codesign;
        std::string spctl;
        bool allowsUntrusted;
        Lines events;
        /// The application that is staged; none when the job fails.
        std::string staged;
        bool dropsQuarantine;
    } cases[] = {
        {"exit 1", "", false, {"failed Vendor code signature is invalid or missing"}, "", false},
        {"exit 1", "", true, {unsignedWarning}, "mnt", false},
        {"", "exit 3", false, {"failed Gatekeeper rejects My Tool.app (not notarized/trusted)"}, "", false},
        {"", "exit 3", true, {"WARNING: Gatekeeper rejects the app (continuing; quarantine kept)"}, "mnt", false},
        {"echo no team >&2", "", false, {"Gatekeeper assessment: accepted"}, "mnt", true},
        {metadata + good + "*mnt*) exit 1 ;; esac",
         "",
         false,
         {needsCopy, "Normalized copy passes strict vendor signature verification", team,
          "Gatekeeper assessment: accepted"},
         "signature-normalized",
         true},
        {metadata + "exit 1", "", false, {needsCopy, "failed Vendor code signature is invalid or missing"}, "", false},
        {metadata + "exit 1", "", true, {needsCopy, unsignedWarning}, "mnt", false},
    };
    for (const auto& expected : cases) {
        fakes.tool("codesign", expected.codesign);
        fakes.tool("spctl", expected.spctl);
        std::filesystem::remove(fakes.sandbox() / "log");
        const Lines all =
            events([&](PipelineConfiguration& asked) { asked.allowUntrustedInput = expected.allowsUntrusted; });
        ASSERT_GT(all.size(), 4 + expected.events.size() - 1);
        EXPECT_EQ(Lines(all.begin() + 4, all.begin() + 4 + static_cast<std::ptrdiff_t>(expected.events.size())),
                  expected.events);
        EXPECT_EQ(all.back(), expected.staged.empty() ? expected.events.back() : "finished My Tool-1.2_3-b.pkg");
        const Lines run = calls();
        const auto ran = [&](const std::string& call) { return std::count(run.begin(), run.end(), call); };
        const std::string app = "WORK/" + expected.staged + "/My Tool.app";
        EXPECT_EQ(ran("ditto|" + app + "|WORK/root/My Tool.app"), expected.staged.empty() ? 0 : 1);
        EXPECT_EQ(ran("xattr|-dr|com.apple.quarantine|WORK/root/My Tool.app"), expected.dropsQuarantine ? 1 : 0);
        if (expected.staged == "signature-normalized") {
            EXPECT_EQ(ran("xattr|-dr|com.apple.FinderInfo|" + app) + ran("xattr|-dr|com.apple.ResourceFork|" + app), 2);
            EXPECT_EQ(ran("spctl|--assess|--type|exec|" + app), 1);
        }
    }
    EXPECT_TRUE(Packaging::isForbiddenSignatureMetadataFailure("a: Disallowed xattr com.apple.FinderInfo"));
    EXPECT_TRUE(Packaging::isForbiddenSignatureMetadataFailure("disallowed XATTR com.apple.ResourceFork found"));
    EXPECT_FALSE(Packaging::isForbiddenSignatureMetadataFailure("disallowed xattr com.apple.quarantine"));
}

TEST_F(DMGToPkgTest, failsWithTheFirstThingThatIsWrong) {
    const struct {
        const char* tool;
        const char* script;
        const char* terminal;
    } cases[] = {
        {"hdiutil", "test $1 != attach || { mkdir \"$7/.a.app\" \"$7/b.app\" \"$7/c.APP\"; touch \"$7/d.app\"; }",
         "failed Expected exactly 1 .app at the DMG root, found 2"},
        {"hdiutil", "test $1 != attach || { mkdir \"$7/c.APP\"; touch \"$7/d.app\"; }",
         "failed Expected exactly 1 .app at the DMG root, found 0"},
        {"hdiutil", "test $1 != attach || ln -s / \"$7/l.app\"", "failed Refusing symlinked app on DMG: l.app"},
        {"plutil", "exit 1", "failed Cannot read CFBundleIdentifier from Info.plist"},
        {"plutil", "test $call = 1 && echo a", "failed Cannot read CFBundleShortVersionString from Info.plist"},
        {"plutil", "echo com.under_score", "failed Suspicious bundle identifier: com.under_score"},
        {"plutil", "test $call = 1 && echo a || echo '1 +2'", "failed Suspicious version string: 1 +2"},
        {"plutil", "test $call = 1 && echo a || echo", "failed Suspicious version string: "},
        {"ditto", "echo full >&2; exit 1", "failed ditto failed (exit 1): full"},
        {"pkgbuild", "exit 2", "failed pkgbuild failed (exit 2)"},
        {"pkgbuild", "test $call = 1 && cp \"$here/list\" \"$4\"", "failed pkgbuild failed (exit 1)"},
        {"pkgbuild", "echo '<plist><dict/></plist>' > \"$4\"", "failed Unexpected component plist shape"},
        {"pkgbuild", "echo '<plist><array/></plist>' > \"$4\"",
         "failed Component analysis produced no components - cannot pin relocation"},
    };
    for (const auto& [tool, script, terminal] : cases) {
        const std::string before = read(fakes.sandbox() / "tools" / tool);
        fakes.tool(tool, script);
        std::filesystem::remove(fakes.sandbox() / (std::string(tool) + ".calls"));
        EXPECT_EQ(events().back(), terminal);
        EXPECT_EQ(calls().back(), "hdiutil|detach|WORK/mnt|-quiet") << terminal;
        fakes.sandbox().write("tools/" + std::string(tool), before);
    }
    EXPECT_TRUE(FileManager::contentsOfDirectory(fakes.sandbox() / "out").empty());
    std::filesystem::remove(fakes.sandbox() / "tools/hdiutil");
    EXPECT_EQ(events().back().find("failed Cannot run "), 0U);
}

TEST_F(DMGToPkgTest, reusesAMountOrAsksForOne) {
    const std::string mounted = (fakes.sandbox() / "in/Image.dmg.d").string();
    const std::string refuse = "test $1 = attach && { printf '\\n  \\n first\\nsecond\\n' >&2; exit 1; }; ";
    fakes.tool("hdiutil", refuse + "cat \"$here/info\"");
    fakes.sandbox().write("info", infoOf(image().string(), mounted));
    const Lines reused = events();
    EXPECT_EQ(reused[1], "Image already mounted read-only at " + mounted + "; reusing it");
    EXPECT_EQ(reused.back(), "finished My Tool-1.2_3-b.pkg");
    EXPECT_EQ(calls().back(), "installer|-pkginfo|-pkg|WORK/unsigned.pkg") << "a reused mount is not detached";

    // The second look of the user's help finds it.
    fakes.sandbox().write("look", "");
    const std::string list = "test $(wc -c < \"$here/look\") -lt 2 && exit 1; cat \"$here/info\"";
    fakes.tool("hdiutil", refuse + "printf x >> \"$here/look\"; " + list);
    const auto help = [](const PackagingPipeline::Job& job) { job.continueAfterMountInteraction(); };
    Lines helped = events({}, help);
    EXPECT_EQ(Lines(helped.begin(), helped.begin() + 5),
              (Lines{"> Mount disk image", "Automatic mount needs user interaction: first", "mount",
                     "Confirmed read-only mount at " + mounted, "< Mount disk image"}));
    fakes.sandbox().write("look", "");
    fakes.tool("hdiutil", "test $1 = attach && { echo ' ' >&2; exit 1; }; printf x >> \"$here/look\"; "
                          "test $(wc -c < \"$here/look\") -lt 3 && exit 1; cat \"$here/info\"");
    helped = events({}, help);
    EXPECT_EQ(Lines(helped.begin() + 1, helped.begin() + 5),
              (Lines{"Automatic mount needs user interaction", "mount",
                     "No read-only mount detected yet; requesting user interaction again", "mount"}));
    EXPECT_EQ(helped.back(), "finished My Tool-1.2_3-b.pkg");

    fakes.tool("hdiutil", "exit 1");
    EXPECT_EQ(events({}, [](const PackagingPipeline::Job& job) { job.cancel(); }),
              (Lines{"> Mount disk image", "Automatic mount needs user interaction", "mount", "cancelled"}));
}

TEST(ReadOnlyMounts, areTheExistingOnesOfTheImageThatNobodyCanWrite) {
    const Sandbox sandbox;
    const std::string image = sandbox.write("real/Image.dmg", "").string();
    std::filesystem::create_symlink("real", sandbox / "link");
    const std::string volume = (sandbox / "volume").string();
    FileManager::createDirectory(volume);
    const struct {
        std::string info;
        std::size_t count;
    } cases[] = {
        {infoOf(image, volume), 1},
        {infoOf((sandbox / "link/../link/./Image.dmg").string(), volume + "/"), 1},
        {infoOf(image + "x", volume), 0},
        {infoOf(image, volume + "x"), 0},
        {infoOf(image, image), 0}, // no folder
        {infoOf(image, volume, "<true/>"), 0},
        {infoOf(image, volume, "<integer>0</integer>"), 0},
        {"<plist><array/></plist>", 0},
        {"<plist><dict/></plist>", 0},
        {"<plist><dict><key>images</key><array><string/></array></dict></plist>", 0},
        {"no list", 0},
    };
    for (const auto& [info, count] : cases) {
        const auto mounts = Packaging::readOnlyMounts(sandbox / "link/Image.dmg", info);
        ASSERT_EQ(mounts.size(), count) << info;
        EXPECT_TRUE(count == 0 || mounts[0] == volume);
    }
    std::string twice = infoOf(image, volume);
    const auto start = twice.find("<array>") + 7;
    const auto end = twice.rfind("</array>");
    twice.insert(end, twice.substr(start, end - start));
    EXPECT_EQ(Packaging::readOnlyMounts(image, twice).size(), 1U);
    // Only the first mount point of an image counts.
    std::string second = infoOf(image, volume + "/gone");
    second.insert(second.rfind("<dict>"), "<dict><key>mount-point</key><string>" + volume + "/lost</string></dict>");
    EXPECT_TRUE(Packaging::readOnlyMounts(image, second).empty());
}

} // namespace
} // namespace corvane
