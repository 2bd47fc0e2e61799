// `components` over real packages, against what an independent reader finds in them.

#include "Support/FileManager.hpp"
#include "Support/XML.hpp"
#include "Tests/EndToEnd/SigningMachine.hpp"

#include <algorithm>

namespace corvane {
namespace {

using namespace TestSupport;

Outcome components(const FileURL& package) {
    return run({program("bin/corvane").string(), "components", package.string()});
}

std::string line(const FileURL& packageInfo, const std::string& archiveName) {
    const auto document = XML::Document::read(packageInfo);
    std::vector<std::string> scripts;
    for (const auto& node : document.query("//scripts/*")) {
        scripts.push_back(node.attribute("file").value_or(node.name()));
    }
    std::sort(scripts.begin(), scripts.end());
    std::string joined;
    for (const std::string& script : scripts) joined += (joined.empty() ? "" : ",") + script;
    const XML::Node root = document.root();
    return root.attribute("identifier").value() + "\t" + root.attribute("version").value_or("0") + "\t" + archiveName +
           "\t" + (joined.empty() ? "-" : joined) + "\n";
}

/// What 7-Zip finds.
std::string expectedListing(const FileURL& package) {
    const Sandbox sandbox;
    EXPECT_EQ(run({"7zz", "x", "-txar", "-o" + sandbox.url().string(), package.string()}).status, 0) << package;
    if (!FileManager::fileExists(sandbox / "Distribution")) return line(sandbox / "PackageInfo", "component.pkg");
    std::vector<std::string> lines;
    for (const FileURL& entry : FileManager::contentsOfDirectory(sandbox.url())) {
        if (pathExtension(entry) == "pkg") lines.push_back(line(entry / "PackageInfo", lastPathComponent(entry)));
    }
    std::sort(lines.begin(), lines.end());
    std::string text;
    for (const std::string& each : lines) text += each;
    return text;
}

TEST(Components, listsEveryRealPackageAsItsOwnFilesSay) {
    CORVANE_REQUIRE_SAMPLES();
    const SigningMachine machine;
    int listed = 0;
    for (const FileURL& package : FileManager::contentsOfDirectory(*samples() / "pkg")) {
        if (lastPathComponent(package).starts_with("xar-")) continue;
        const Outcome outcome = components(package);
        EXPECT_EQ(outcome.status, 0) << package << outcome.errors;
        EXPECT_EQ(outcome.output, expectedListing(package)) << package;
        ++listed;
    }
    EXPECT_GE(listed, 30);
    EXPECT_EQ(machine.temporaryFiles(), std::vector<std::string>{});
}

TEST(Components, listsTheExampleAsTheReadmeShowsIt) {
    const Outcome outcome = components(source("Examples/Harbor Tools.pkg"));
    EXPECT_EQ(outcome.status, 0);
    const std::string shown = "$ ./run components \"Examples/Harbor Tools.pkg\"\n" + outcome.output + "```\n";
    EXPECT_NE(read(source("README.md")).find(shown), std::string::npos) << outcome.output;
}

TEST(Components, saysThatAForeignOrDamagedFileIsNoPackageAndLeavesNothing) {
    const SigningMachine machine;
    const std::string sound = read(machine.makeProduct());
    std::vector<std::string> broken{"", "no package", std::string(4096, '\0')};
    for (const std::size_t length : {std::size_t{27}, std::size_t{200}, sound.size() - 1}) {
        broken.push_back(sound.substr(0, length));
    }
    for (const std::size_t at : {std::size_t{40}, sound.size() - 100}) { // in the contents, and in the data of an entry
        broken.push_back(sound);
        broken.back()[at] = static_cast<char>(broken.back()[at] ^ 1);
    }
    for (const std::string& content : broken) {
        const Outcome outcome = components(machine.sandbox().write("in/Broken.pkg", content));
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(outcome.errors, "corvane: Not a flat pkg, or metadata expansion failed\n");
    }
    EXPECT_EQ(machine.temporaryFiles(), std::vector<std::string>{});
}

TEST(Components, namesWhatIsMissingInRealArchivesThatAreNoPackages) {
    CORVANE_REQUIRE_SAMPLES();
    const SigningMachine machine;
    for (const char* name : {"xar-empty-toc.pkg", "xar-no-packageinfo.pkg"}) {
        const Outcome outcome = components(*samples() / "pkg" / name);
        EXPECT_EQ(outcome.status, 1) << name;
        EXPECT_EQ(outcome.errors.find("corvane: Cannot read "), 0U) << outcome.errors;
        EXPECT_TRUE(outcome.errors.ends_with("/PackageInfo: No such file or directory\n")) << outcome.errors;
    }
    EXPECT_EQ(machine.temporaryFiles(), std::vector<std::string>{});
}

} // namespace
} // namespace corvane
