#include "Services/PackagingPipeline.hpp"
#include "Services/PackagingPipeline/ComponentList.hpp"
#include "Support/FileManager.hpp"
#include "Support/PropertyList.hpp"
#include "Tests/FakeTools.hpp"
#include "Tests/Services/EventLine.hpp"

#include <algorithm>

namespace corvane {
namespace {

using TestSupport::FakeTools;
using TestSupport::line;
using TestSupport::read;
using TestSupport::Sandbox;
using Lines = std::vector<std::string>;

/// A system on which packages are tar archives of their expanded folders.
class RecompressTest : public testing::Test {
  protected:
    RecompressTest() {
        fakes.tool("pkgutil", R"(case $1 in
    --check-signature) echo Status: signed ;;
    --flatten) tar -cf "$3" -C "$2" . ;;
    *) mkdir "$3" && tar -xf "$2" -C "$3" ;;
esac)");
        fakes.tool("spctl", "");
        fakes.tool("installer", "");
        fakes.tool("diff", "exec /usr/bin/diff --no-dereference \"$@\"");
        fakes.tool("pkgbuild", R"(if [ "$1" = --analyze ]; then cp "$here/list" "$4"; exit; fi
new=$here/new-$call; mkdir "$new"
while [ $# -gt 1 ]; do
    case $1 in
        --root) cp -a "$2" "$new/Payload"; echo bill > "$new/Bom" ;;
        --scripts) cp -a "$2" "$new/Scripts" ;;
    esac
    shift
done
echo '<pkg-info generator-version="new"><payload installKBytes="9"/></pkg-info>' > "$new/PackageInfo"
tar -cf "$1" -C "$new" .)");
        fakes.tool("productbuild", R"(new=$here/product; mkdir "$new"; cp "$2" "$new/Distribution"
for component in "$4"/*; do mkdir "$new/${component##*/}"; tar -xf "$component" -C "$new/${component##*/}"; done
if [ "$5" = --resources ]; then cp -a "$6" "$new/Resources"; shift 2; fi
tar -cf "$5" -C "$new" .)");
        fakes.sandbox().write("list", "<plist><array/></plist>");
        FileManager::createDirectory(fakes.sandbox() / "out");
    }

    static std::string packageInfo(const std::string& attributes) {
        return "<pkg-info " + attributes + "><payload installKBytes='9'/></pkg-info>";
    }

    FileURL write(const std::string& name, const std::string& content) const {
        return fakes.sandbox().write("vendor/" + name, content);
    }

    Lines events(const std::function<void(PipelineConfiguration&)>& ask = {}) const {
        const FileURL input = fakes.sandbox() / "Vendor Tool.pkg";
        TestSupport::run({"tar", "-cf", input.string(), "-C", (fakes.sandbox() / "vendor").string(), "."});
        PipelineConfiguration asked{.action = PipelineAction::recompressPkg,
                                    .inputURL = input,
                                    .outputDirectory = fakes.sandbox() / "out",
                                    .signingIdentity = std::nullopt,
                                    .minOSVersion = "12.0"};
        if (ask) ask(asked);
        const auto job = PackagingPipeline(asked).start();
        Lines lines;
        while (const auto event = job.events.next()) lines.push_back(line(*event));
        return lines;
    }

    /// The calls of a tool, with the job's own folder as WORK, scratch folders as component-N, and without the checks
    /// of the input.
    Lines calls(const std::string& tool) const {
        Lines result;
        for (std::string call : fakes.calls()) {
            if (!call.starts_with(tool)) continue;
            const std::string marker = "/corvane-";
            for (std::size_t at; (at = call.find(marker)) != std::string::npos;) {
                const std::size_t start = call.rfind('|', at) + 1;
                call.replace(start, at + marker.size() + 36 - start, "WORK");
            }
            for (std::size_t at = 0; (at = call.find("component-", at)) != std::string::npos; ++at) {
                if (call.compare(at + 10, 5, "plist") != 0) call.replace(at + 10, 36, "N");
            }
            result.push_back(call);
        }
        return result;
    }

    FakeTools fakes;
};

TEST_F(RecompressTest, rebuildsASingleComponentWithItsMetadata) {
    write("PackageInfo", packageInfo("identifier='com.x' postinstall-action='logout' relocatable='true'"));
    write("Payload/file", "content");
    write("Bom", "bill of the vendor");
    fakes.sandbox().writeScript("vendor/Scripts/postinstall", "exit 0");
    EXPECT_EQ(events(), (Lines{"> Verify input trust", "Input signature: signed", "< Verify input trust",
                               "> Expand package", "< Expand package", "> Build package",
                               "WARNING: postinstall-action='logout' on com.x is NOT preserved by pkgbuild",
                               "Rebuilt com.x (0)", "< Build package", "> Sign",
                               "Skipping signing - pkg is UNSIGNED (not usable for PreStage/MDM commands)", "< Sign",
                               "> Verify result", "Comparing rebuilt package semantics with the original",
                               "Package metadata, scripts, payload, ownership, and Distribution match",
                               "< Verify result", "finished Vendor Tool-recompressed.pkg"}));
    EXPECT_EQ(
        calls("pkgbuild"),
        (Lines{"pkgbuild|--analyze|--root|WORK/expand/Payload|WORK/component-N/component.plist",
               "pkgbuild|--root|WORK/expand/Payload|--identifier|com.x|--version|0|--install-location|/|"
               "--compression|latest|--min-os-version|12.0|--scripts|WORK/expand/Scripts|WORK/component-N/raw.pkg"}));
    EXPECT_EQ(calls("pkgutil|--expand|").size(), 1U);
    EXPECT_EQ(calls("pkgutil|--flatten"), Lines{"pkgutil|--flatten|WORK/component-N/raw-expanded|WORK/unsigned.pkg"});
    EXPECT_TRUE(calls("productbuild").empty());
}

TEST_F(RecompressTest, removesComponentsAndTellsBesideThePackage) {
    write("Distribution", "<d><choice id='b'><pkg-ref id='com.b'/></choice><pkg-ref id='com.a' installKBytes='9'>#a.pkg"
                          "</pkg-ref><pkg-ref id='com.b'>#b.pkg</pkg-ref></d>");
    write("Resources/welcome", "Welcome");
    write("a.pkg/PackageInfo", packageInfo("identifier='com.a' version='2' postinstall-action='logout' "
                                           "install-location='/Applications'"));
    write("a.pkg/Bom", "bill");
    write("a.pkg/Payload/Tool.app/Contents/Info.plist",
          "<plist><dict><key>CFBundleIdentifier</key><string>com.a.app</string></dict></plist>");
    write("b.pkg/PackageInfo",
          "<pkg-info identifier='com.b'><payload/><scripts><postinstall file='./postinstall'/></scripts></pkg-info>");
    fakes.sandbox().write("list", "<plist><array><dict><key>BundleIsRelocatable</key><true/></dict></array></plist>");
    fakes.sandbox().write("out/Vendor Tool-recompressed.changes.json", "earlier");
    const Lines lines = events([](PipelineConfiguration& asked) {
        asked.componentIdentifiersToRemove = {"com.b"};
        asked.modernCompression = false;
        asked.writeBundleInventory = true;
    });
    const std::string out = (fakes.sandbox() / "out").string();
    EXPECT_EQ(Lines(lines.begin() + 5, lines.end()),
              (Lines{"Removing component com.b from b.pkg (scripts: ./postinstall)", "> Build package",
                     "Rebuilt com.a (2)", "Reassembling distribution archive (1 component(s))", "< Build package",
                     "> Sign", "Skipping signing - pkg is UNSIGNED (not usable for PreStage/MDM commands)", "< Sign",
                     "> Verify result", "Comparing rebuilt package semantics with the original",
                     "Declared components are absent; all remaining package metadata, scripts, payload, ownership, and "
                     "Distribution match",
                     "Reading top-level /Applications app IDs and versions",
                     "Bundle inventory: " + out + "/Vendor Tool-recompressed.bundles.txt",
                     "Change report: " + out + "/Vendor Tool-recompressed.changes.json", "< Verify result",
                     "finished Vendor Tool-recompressed.pkg"}));
    EXPECT_EQ(calls("pkgbuild").back(), "pkgbuild|--root|WORK/expand/a.pkg/Payload|--component-plist|WORK/component-N/"
                                        "component.plist|--identifier|com.a|--version|2|--install-location|"
                                        "/Applications|WORK/component-N/raw.pkg");
    EXPECT_EQ(calls("productbuild"),
              Lines{"productbuild|--distribution|WORK/expand/Distribution|--package-path|WORK/rebuilt|--resources|"
                    "WORK/expand/Resources|WORK/unsigned.pkg"});
    EXPECT_EQ(calls("pkgutil|--expand-full").size(), 2U); // the inventory reads what the proof has expanded
    EXPECT_EQ(read(fakes.sandbox() / "out/Vendor Tool-recompressed.bundles.txt"),
              "Corvane bundle inventory\nPackage: Vendor Tool-recompressed.pkg\nGenerated by: Corvane 0.3.0\n\n"
              "App bundle ID (CFBundleIdentifier): com.a.app\n"
              "App version (CFBundleShortVersionString): not specified\n");
    EXPECT_EQ(read(fakes.sandbox() / "out/Vendor Tool-recompressed.changes.json"), R"({
  "generatedBy" : "Corvane 0.3.0",
  "outputPackage" : "Vendor Tool-recompressed.pkg",
  "removedComponents" : [
    {
      "archiveName" : "b.pkg",
      "identifier" : "com.b",
      "installLocation" : "/",
      "scripts" : [
        "./postinstall"
      ],
      "version" : "0"
    }
  ],
  "schemaVersion" : 1,
  "sourcePackage" : "Vendor Tool.pkg"
}
)");
}

TEST_F(RecompressTest, buildsWhatHasNoPayloadAndSkipsWhatIsNoComponent) {
    write("Distribution", "<d/>");
    write("Resources", "no folder");
    write("a.pkg/PackageInfo", packageInfo("identifier='com.a'"));
    write("A.PKG/PackageInfo", "no component");
    write("file.pkg", "no folder");
    EXPECT_EQ(events().back(), "failed Recompression changed top-level package layout. Original: A.PKG, Distribution, "
                               "Resources, a.pkg, file.pkg. Rebuilt: Distribution, a.pkg");
    EXPECT_EQ(calls("pkgbuild"), Lines{"pkgbuild|--nopayload|--identifier|com.a|--version|0|--install-location|/|"
                                       "--compression|latest|--min-os-version|12.0|WORK/component-N/raw.pkg"});
    EXPECT_EQ(calls("productbuild")[0].find("--resources"), std::string::npos);
}

TEST_F(RecompressTest, failsWithWhatIsWrong) {
    const auto vendor = [&](const std::string& info) {
        std::filesystem::remove_all(fakes.sandbox() / "vendor");
        write("Payload/file", "");
        write("Bom", "");
        if (!info.empty()) write("PackageInfo", info);
        return events().back();
    };
    EXPECT_EQ(vendor(""), "failed Missing PackageInfo in expand");
    EXPECT_EQ(vendor("<other a='1'/>"), "failed Cannot parse PackageInfo");
    EXPECT_EQ(vendor("<pkg-info/>"), "failed Cannot parse PackageInfo");
    EXPECT_EQ(vendor("<pkg-info version='1'/>"), "failed Cannot read identifier from PackageInfo");
    EXPECT_EQ(vendor("<pkg-info identifier=''/>"), "failed Cannot read identifier from PackageInfo");
    const std::string good = packageInfo("identifier='com.x'");
    fakes.sandbox().write("list", "<plist><dict/></plist>");
    EXPECT_EQ(vendor(good), "failed Unexpected component plist shape");
    fakes.tool("pkgbuild", "echo reason >&2; test $1 = --analyze && echo '<plist><array/></plist>' > \"$4\"");
    EXPECT_EQ(vendor(good), "failed pkgbuild failed (exit 1): reason");
    fakes.tool("pkgbuild", "exit 7");
    EXPECT_EQ(vendor(good), "failed pkgbuild failed (exit 7)");
    std::filesystem::remove_all(fakes.sandbox() / "vendor");
    write("Distribution", "<d/>");
    EXPECT_EQ(events().back(), "failed Distribution archive contains no component packages");
    fakes.tool("pkgutil", "test $1 = --check-signature");
    EXPECT_EQ(events().back(), "failed Not a flat pkg, or expansion failed");
    EXPECT_TRUE(FileManager::contentsOfDirectory(fakes.sandbox() / "out").empty());
}

TEST(ComponentList, pinsBundlesAtEveryLevelAndKeepsTheRest) {
    const Sandbox sandbox;
    const FileURL url = sandbox / "component.plist";
    const auto rewritten = [&](const std::string& list) {
        sandbox.write("component.plist", "<plist>" + list + "</plist>");
        EXPECT_TRUE(Packaging::disableRelocation(url));
        return PropertyList::read(url);
    };
    const auto parsed = [](const std::string& list) {
        return PropertyList::parse("<plist>" + list + "</plist>", "list");
    };
    const std::string relocatable = "<key>BundleIsRelocatable</key><true/>";
    const std::string pinned = "<key>BundleIsRelocatable</key><false/>";
    const auto bundles = [](const std::string& keys) {
        return "<array><dict>" + keys + "<key>ChildBundles</key><array><dict>" + keys +
               "<key>ChildBundles</key><array><dict>" + keys + "</dict></array></dict></array></dict><dict>" + keys +
               "<key>ChildBundles</key><array><string>odd</string></array><key>N</key><real>1.5</real></dict></array>";
    };
    EXPECT_EQ(rewritten(bundles(relocatable)), parsed(bundles(pinned)));
    EXPECT_EQ(rewritten(bundles("")), parsed(bundles(pinned)));
    sandbox.write("component.plist", "<plist><array><string/></array></plist>");
    EXPECT_THROW(Packaging::disableRelocation(url), PipelineError);
    sandbox.write("component.plist", "<plist><array/></plist>");
    EXPECT_FALSE(Packaging::disableRelocation(url));
}

} // namespace
} // namespace corvane
