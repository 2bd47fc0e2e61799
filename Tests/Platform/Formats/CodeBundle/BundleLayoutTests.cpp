#include "Platform/Formats/CodeBundle/BundleLayout.hpp"
#include "Platform/Formats/ExtendedAttributes/AppleDouble.hpp"
#include "Tests/TestSupport.hpp"

namespace corvane {
namespace {

using Kind = BundleLayout::Kind;
using TestSupport::Sandbox;
namespace fs = std::filesystem;

std::string info(const std::string& executable, const std::string& more = "") {
    return "<plist><dict><key>CFBundleExecutable</key><string>" + executable + "</string>" + more + "</dict></plist>";
}

/// A made bundle: files by path, or links where the content begins with "->".
struct Bundle {
    using Items = std::vector<std::pair<std::string, std::string>>;
    Sandbox sandbox;
    FileURL root;

    Bundle(const std::string& name, const Items& items) : root(sandbox / name) {
        for (const auto& [path, content] : items) add(path, content);
    }
    void add(const std::string& path, const std::string& content) const {
        const FileURL url = root / path;
        fs::remove_all(url);
        fs::create_directories(url.parent_path());
        if (content == "folder") {
            fs::create_directory(url);
        } else if (content.starts_with("->")) {
            fs::create_symlink(content.substr(2), url);
        } else {
            sandbox.write(url.string(), content);
        }
    }
};

const Bundle::Items application = {{"Contents/Info.plist", info("Run")}, {"Contents/MacOS/Run", "#!/bin/sh\n"}};
const Bundle::Items framework = {{"Versions/A/Resources/Info.plist", info("Kit")},
                                 {"Versions/A/Kit", "x"},
                                 {"Versions/Current", "->A"},
                                 {"Kit", "->Versions/Current/Kit"},
                                 {"Resources", "->./Versions/Current/Resources"},
                                 {"module.map", ""}};

/// "KIND RESOURCE-ROOT INFO EXECUTABLE", paths from the root on; "none" for no bundle.
std::string described(const std::optional<BundleLayout>& layout, const FileURL& root) {
    if (!layout) return "none";
    const char* kinds[] = {"contents", "versioned", "resources", "flat"};
    const auto relative = [&](const std::optional<FileURL>& url) {
        return url ? url->lexically_relative(root).string() : std::string("-");
    };
    return std::string(kinds[static_cast<int>(layout->kind)]) + " " + relative(layout->resourceRoot) + " " +
           relative(layout->infoPropertyListURL) + " " + relative(layout->executable);
}

TEST(BundleLayout, kinds) {
    struct Case {
        const char* name;
        Bundle::Items items;
        const char* expected;
        std::string version = "";
    };
    const std::string noName = "<plist><dict/></plist>";
    const Case cases[] = {
        {"A.app", application, "contents Contents Contents/Info.plist Contents/MacOS/Run"},
        {"A.app",
         {{"Contents/Info.plist", noName}, {"Contents/MacOS/A", ""}},
         "contents Contents Contents/Info.plist Contents/MacOS/A"},
        {"A.app", {{"Contents/MacOS/A", ""}}, "contents Contents - Contents/MacOS/A"},
        {"A.app",
         {{"Contents/Info.plist", info("run")}, {"Contents/MacOS/Run", ""}},
         "contents Contents Contents/Info.plist -"},
        {"A.app",
         {{"Contents/Info.plist", info("../x")}, {"Contents/x", ""}, {"Contents/MacOS/A", ""}},
         "contents Contents Contents/Info.plist -"},
        {"A.app",
         {{"Contents/Info.plist", info("..")}, {"Contents/MacOS", "folder"}},
         "contents Contents Contents/Info.plist -"},
        {"A.app",
         {{"Contents/Info.plist", info("x")}, {"Contents/MacOS", "->../bin"}, {"bin/x", ""}},
         "contents Contents Contents/Info.plist -"},
        {"A.app", {{"Contents/other", ""}, {"Info.plist", noName}}, "none"},
        {"A.app", {{"Contents", "->Other"}, {"Other/Info.plist", noName}}, "none"},
        {"A.app", {{"other", ""}}, "none"},
        {"A.app", {{"Info.plist", info("Run")}, {"Run", ""}}, "flat . Info.plist Run"},
        {"A.app", {{"Info.plist", "folder"}}, "none"},
        {"A",
         {{"Resources/Info.plist", info("Run")}, {"Info.plist", noName}, {"Run", ""}},
         "resources . Resources/Info.plist Run"},
        {"Kit.framework", framework, "versioned Versions/A Versions/A/Resources/Info.plist Versions/A/Kit"},
        {"Kit.framework",
         {{"Versions/B/Kit", ""}, {"Versions/Current", "->./B"}, {"Contents/Info.plist", noName}},
         "versioned Versions/B - Versions/B/Kit"},
        {"Kit.framework", {{"Versions/Current/Kit", ""}}, "versioned Versions/Current - Versions/Current/Kit"},
        {"Kit.framework", {{"Versions/B/Kit", ""}, {"Versions/Current", "->../Versions/B"}}, "none"},
        {"Kit.framework", {{"V/B/Kit", ""}, {"V/Current", "->B"}, {"Versions", "->V"}}, "none"},
        {"Kit.framework",
         {{"Versions/B/Kit", ""}, {"Versions/Current", "->A"}, {"Info.plist", noName}},
         "flat . Info.plist -"},
        {"Kit.framework",
         {{"Versions/A/Kit", ""}, {"Versions/B/Kit", ""}, {"Versions/Current", "->A"}},
         "versioned Versions/B - Versions/B/Kit",
         "B"},
        {"Kit.framework", framework, "none", "B"},
        {"Kit.framework", framework, "none", "../Versions/A"},
    };
    for (const Case& each : cases) {
        const Bundle bundle(each.name, each.items);
        EXPECT_EQ(described(BundleLayout::of(bundle.root, each.version), bundle.root), each.expected);
    }
}

TEST(BundleLayout, isFoundThroughALinkToTheBundle) {
    const Bundle bundle("A.app", {{"Info.plist", info("Run")}, {"Run", ""}});
    const FileURL link = bundle.sandbox / "link";
    fs::create_symlink(bundle.root, link);
    EXPECT_EQ(described(BundleLayout::of(link), link), "flat . Info.plist Run");
}

TEST(BundleLayout, ofAnExecutable) {
    struct Case {
        Bundle::Items items;
        const char* file;
        const char* expected;
    };
    const std::string kit = "versioned Versions/A Versions/A/Resources/Info.plist Versions/A/Kit";
    Bundle::Items two = framework;
    two.insert(two.end(), {{"Versions/B/Resources/Info.plist", info("Kit")}, {"Versions/B/Kit", ""}});
    const Case cases[] = {
        {application, "Contents/MacOS/Run", "contents Contents Contents/Info.plist Contents/MacOS/Run"},
        {application, "Contents/MacOS/../MacOS/Run", "contents Contents Contents/Info.plist Contents/MacOS/Run"},
        {application, "Contents/Info.plist", "none"},
        {application, "Contents/MacOS/missing", "none"},
        {{{"Contents/Info.plist", info("Run")}, {"Contents/MacOS/tool", ""}}, "Contents/MacOS/tool", "none"},
        {framework, "Versions/A/Kit", kit.c_str()},
        {framework, "Versions/Current/Kit", kit.c_str()},
        {framework, "Kit", kit.c_str()},
        {two, "Versions/B/Kit", "versioned Versions/B Versions/B/Resources/Info.plist Versions/B/Kit"},
        {{{"Info.plist", info("Run")}, {"Run", ""}, {"other", ""}}, "Run", "flat . Info.plist Run"},
        {{{"Info.plist", info("Run")}, {"Run", ""}, {"other", ""}}, "other", "none"},
    };
    for (const Case& each : cases) {
        const Bundle bundle("A.bundle", each.items);
        const FileURL real = fs::canonical(bundle.root);
        EXPECT_EQ(described(BundleLayout::whoseExecutableIs(bundle.root / each.file), real), each.expected);
    }
}

TEST(BundleLayout, placesAndVersions) {
    const std::string type = "<key>CFBundlePackageType</key><string>APPL</string>";
    const Bundle app("A.app", {{"Contents/Info.plist", info("Run", type)}, {"Contents/CodeResources", "s8ch"}});
    const auto layout = BundleLayout::of(app.root).value();
    EXPECT_TRUE(layout.isApplication());
    EXPECT_EQ(layout.sealedResourcesURL(), app.root / "Contents/CodeResources");
    app.add("Contents/_CodeSignature/CodeResources", "");
    EXPECT_EQ(layout.sealedResourcesURL(), app.root / "Contents/_CodeSignature/CodeResources");
    EXPECT_TRUE(layout.otherVersions().empty());

    const Bundle kit("Kit.framework", framework);
    for (const char* path : {"Versions/Z/x", "Versions/B/x", "Versions/file"}) kit.add(path, "");
    kit.add("Versions/link", "->A");
    const auto current = BundleLayout::of(kit.root).value();
    EXPECT_FALSE(current.isApplication());
    EXPECT_EQ(current.otherVersions(), (std::vector<std::string>{"B", "Z"}));
    EXPECT_FALSE(BundleLayout::of(kit.root, "B"));
}

const std::string companion = AppleDouble{.attributes = {{"com.example.a", "b"}}}.serialized();

TEST(BundleLayout, structuralProblems) {
    const std::string inRoot = "unsealed contents present in the bundle root";
    const std::string inFramework = "unsealed contents present in the root directory of an embedded framework";
    const std::string irregular = "the main executable or Info.plist must be a regular file (no symlinks, etc.)";
    struct Case {
        const Bundle::Items& base;
        Bundle::Items more;
        std::string expected;
    };
    const Case cases[] = {
        {application, {}, ""},
        {application, {{".DS_Store", ""}, {".LSOverride", ""}, {"Icon\r", ""}, {".SoftwareDepot.tracking", ""}}, ""},
        {application, {{"._Contents", companion}, {"Icon\r", ""}, {"._Icon\r", companion}}, ""},
        {application, {{"._Contents", "no attributes"}}, inRoot},
        {application, {{"._Other", companion}}, inRoot},
        {application, {{"Icon", ""}}, inRoot},
        {application, {{".DS_Store", "->Contents"}}, inRoot},
        {application, {{".DS_Store", "folder"}}, inRoot},
        {application, {{"Wrapper/x", ""}}, inRoot},
        {application, {{"Contents/Info.plist", "->Other.plist"}, {"Contents/Other.plist", info("Run")}}, irregular},
        {application, {{"Contents/MacOS/Run", "->Other"}, {"Contents/MacOS/Other", ""}}, irregular},
        {framework, {}, ""},
        {framework, {{"Versions/Current", "->./A"}, {"Versions/B/x", ""}, {"._Kit", companion}}, ""},
        {framework, {{"Kit", "->Versions/A/Kit"}}, inFramework},
        {framework, {{"Other", "->Versions/Current/Kit"}}, inFramework},
        {framework, {{"XPCServices/x", ""}}, inFramework},
        {framework, {{"module.map", "->Versions/Current/module.map"}}, ""},
        {framework, {{"module.map", "->Versions/A/module.map"}}, inFramework},
        {framework, {{"Versions/file", ""}}, inFramework},
        {framework, {{"Versions/Latest", "->A"}}, inFramework},
        {framework, {{"Versions/Current", "folder"}, {"Versions/Current/Kit", ""}}, inFramework},
    };
    for (const Case& each : cases) {
        const Bundle bundle("Kit.framework", each.base);
        std::string added;
        for (const auto& [path, content] : each.more) {
            bundle.add(path, content);
            added += path + " ";
        }
        EXPECT_EQ(BundleLayout::of(bundle.root).value().structuralProblem(), each.expected) << added;
    }
    const Bundle bundle("A.app", application);
    fs::permissions(bundle.sandbox.write(bundle.root.string() + "/.DS_Store", ""), fs::perms::owner_all);
    EXPECT_EQ(BundleLayout::of(bundle.root).value().structuralProblem(), inRoot);
}

TEST(BundleLayout, othersInTheSignatureFolder) {
    const std::pair<Bundle::Items, bool> cases[] = {
        {{}, false},
        {{{"CodeResources", ""}, {"CodeDirectory", ""}, {"CodeRequirements-5", ""}, {"CodeSignature", ""}}, false},
        {{{"CodeResources", ""}, {"._CodeResources", companion}}, false},
        {{{"CodeRequirements-6", ""}}, true},
        {{{"coderesources", ""}}, true},
        {{{"CodeResources", "->../x"}}, true},
        {{{"CodeDirectory", "folder"}}, true},
        {{{"", "->elsewhere"}}, true},
    };
    for (const auto& [items, expected] : cases) {
        const Bundle bundle("A.app", application);
        for (const auto& [path, content] : items)
            bundle.add("Contents/_CodeSignature" + (path.empty() ? "" : "/" + path), content);
        EXPECT_EQ(BundleLayout::of(bundle.root).value().signatureFolderHoldsOthers(), expected)
            << (items.empty() ? "" : items.back().first);
    }
}

} // namespace
} // namespace corvane
