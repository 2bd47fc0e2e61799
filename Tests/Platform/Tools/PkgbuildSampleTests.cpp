// Rebuilds the payloads of real packages and compares what is computed with what the real tool computed.

#include "Platform/Formats/Bom/Reader.hpp"
#include "Support/FileManager.hpp"
#include "Support/PropertyList.hpp"
#include "Support/XML.hpp"
#include "Tests/TestSupport.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <map>

namespace corvane {
namespace {

using TestSupport::Sandbox;
using Strings = std::vector<std::string>;

void runTool(const std::string& name, const Strings& arguments) {
    Strings command{TestSupport::program("libexec/corvane/" + name)};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const auto outcome = TestSupport::run(command);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
}

/// The folders of the components in an expanded package that the real tool made of a root folder.
std::vector<FileURL> components(const FileURL& expanded) {
    std::vector<FileURL> folders{expanded};
    for (const FileURL& url : FileManager::contentsOfDirectory(expanded)) folders.push_back(url);
    std::erase_if(folders, [](const FileURL& folder) {
        if (!FileManager::fileExists(folder / "PackageInfo") || !FileManager::fileExists(folder / "Payload")) {
            return true;
        }
        const auto info = XML::Document::read(folder / "PackageInfo");
        return !info.root().attribute("generator-version").value_or("").starts_with("InstallCmds");
    });
    return folders;
}

std::string payload(const XML::Document& info) {
    std::string text;
    for (const XML::Node& number : info.query("/pkg-info/payload/@*"))
        text += number.name() + "=" + number.text() + " ";
    return text;
}

Strings bundleList(const XML::Document& info, const std::string& name) {
    Strings identifiers;
    for (const XML::Node& id : info.query("/pkg-info/" + name + "/bundle/@id")) identifiers.push_back(id.text());
    std::sort(identifiers.begin(), identifiers.end());
    return identifiers;
}

Strings bundles(const XML::Document& info) {
    Strings elements;
    for (const XML::Node& bundle : info.query("/pkg-info/bundle")) elements.push_back(bundle.serialized());
    std::sort(elements.begin(), elements.end());
    return elements;
}

/// A component list by which the bundles of a real package get the rules that they have there.
std::string componentList(const XML::Document& info) {
    using namespace PropertyList;
    const auto has = [&](const char* list, const std::string& id) {
        const Strings ids = bundleList(info, list);
        return std::find(ids.begin(), ids.end(), id) != ids.end();
    };
    Array list;
    for (const XML::Node& bundle : info.query("/pkg-info/bundle")) {
        const std::string id = *bundle.attribute("id");
        const char* action = has("update-bundle", id) ? "update" : has("upgrade-bundle", id) ? "upgrade" : "";
        list.push_back({Dictionary{{"RootRelativeBundlePath", {bundle.attribute("path")->substr(2)}},
                                   {"BundleIsVersionChecked", {has("bundle-version", id)}},
                                   {"BundleIsRelocatable", {has("relocate", id)}},
                                   {"BundleHasStrictIdentifier", {has("strict-identifier", id)}},
                                   {"BundleOverwriteAction", {action}}}});
    }
    return serializedXML({std::move(list)});
}

/// What a Bom says, but for owners and times, sizes of folders, which depend on the file system of the builder, and the
/// mode of the root, which is not restored.
std::map<std::string, std::string> bomLines(const FileURL& url) {
    const std::string bytes = TestSupport::read(url);
    Bom::Reader reader(bytes);
    std::map<std::string, std::string> lines;
    while (const auto entry = reader.next()) {
        if (entry->path == ".") continue;
        std::string& line = lines[entry->path];
        line = std::to_string(static_cast<int>(entry->type)) + " " + std::to_string(entry->mode) + " " +
               entry->linkTarget + (entry->isCompanion ? " companion" : "");
        if (entry->type != Bom::EntryType::directory) {
            line += " " + std::to_string(entry->size) + " " + std::to_string(entry->checksum);
        }
        for (const Bom::Architecture& each : entry->architectures) {
            for (const auto number : {each.cpuType, each.cpuSubtype, each.size, each.checksum}) {
                line += " " + std::to_string(number);
            }
        }
    }
    return lines;
}

/// The real tool's other way, `--component`, counts without the root and rounds down; its Boms give the root no mode.
bool isMadeOfOneBundle(const FileURL& bom) {
    const std::string bytes = TestSupport::read(bom);
    const auto root = Bom::Reader(bytes).next();
    return root && root->mode == 0;
}

void compareComponent(const FileURL& real, const Sandbox& sandbox) {
    FileManager::createDirectory(sandbox / "root");
    const auto restored = TestSupport::run(
        {"sh", "-c", "gunzip -c < \"$1\" | cpio -idm --quiet --no-preserve-owner", "sh", real / "Payload"},
        {.folder = sandbox / "root"});
    ASSERT_EQ(restored.status, 0) << restored.errors;
    const XML::Document expected = XML::Document::read(real / "PackageInfo");
    runTool("pkgbuild", {"--root", sandbox / "root", "--identifier", "a", "--component-plist",
                         sandbox.write("list.plist", componentList(expected)), sandbox / "again.pkg"});
    runTool("pkgutil", {"--expand", sandbox / "again.pkg", sandbox / "again"});
    const XML::Document found = XML::Document::read(sandbox / "again/PackageInfo");
    if (!isMadeOfOneBundle(real / "Bom")) {
        EXPECT_EQ(payload(found), payload(expected));
    }
    EXPECT_EQ(bundles(found), bundles(expected));
    for (const char* name : {"bundle-version", "upgrade-bundle", "update-bundle", "strict-identifier", "relocate"}) {
        EXPECT_EQ(bundleList(found, name), bundleList(expected, name)) << name;
    }
    EXPECT_EQ(bomLines(sandbox / "again/Bom"), bomLines(real / "Bom"));
}

TEST(PkgbuildSamples, computesWhatTheRealToolComputed) {
    CORVANE_REQUIRE_SAMPLES();
    int compared = 0;
    for (const FileURL& package : FileManager::contentsOfDirectory(*TestSupport::samples() / "pkg")) {
        const Sandbox expanded;
        runTool("pkgutil", {"--expand", package, expanded / "out"});
        for (const FileURL& component : components(expanded / "out")) {
            SCOPED_TRACE(package.string() + " " + component.filename().string());
            compareComponent(component, Sandbox());
            ++compared;
        }
    }
    EXPECT_GT(compared, 20);
}

} // namespace
} // namespace corvane
