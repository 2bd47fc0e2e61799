#include "Models/PipelineModels.hpp"
#include "Services/PackageComponentCatalog.hpp"
#include "Services/PackageComponentEditor.hpp"
#include "Services/PackageComponentJSON.hpp"
#include "Support/FileManager.hpp"
#include "Support/XML.hpp"
#include "Tests/FakeTools.hpp"

namespace corvane {
namespace {

using TestSupport::FakeTools;
using TestSupport::Sandbox;

std::string errorOf(const FileURL& folder) {
    try {
        PackageComponentEditor::components(folder);
    } catch (const std::exception& error) {
        return error.what();
    }
    return "no error";
}

TEST(PackageComponentEditor, readsASingleComponentWithItsDefaults) {
    const Sandbox sandbox;
    sandbox.write("PackageInfo", "<pkg-info identifier='com.x'><scripts>text<preinstall file='./preinstall'/>"
                                 "<postinstall/><!-- none --></scripts></pkg-info>");
    FileManager::createDirectory(sandbox / "Distribution"); // a folder of that name is no Distribution
    const std::vector<PackageComponentDescriptor> expected{{.archiveName = "component.pkg",
                                                            .identifier = "com.x",
                                                            .version = "0",
                                                            .installLocation = "/",
                                                            .scripts = {"./preinstall", "postinstall"}}};
    EXPECT_EQ(PackageComponentEditor::components(sandbox.url()), expected);
    EXPECT_EQ(decodedComponent(encoded(expected[0])), expected[0]);
    JSONValue incomplete = encoded(expected[0]);
    incomplete.erase("scripts");
    EXPECT_THROW(decodedComponent(incomplete), JSONValue::exception);
    PackageComponentDescriptor oddlyNamed = expected[0];
    oddlyNamed.archiveName = "\xff.pkg"; // a file's name is any bytes, a text in JSON is not
    EXPECT_EQ(encoded(oddlyNamed)["archiveName"], "\uFFFD.pkg");
}

TEST(PackageComponentEditor, readsTheFoldersOfADistributionInCanonicalOrder) {
    const Sandbox sandbox;
    sandbox.write("Distribution", "");
    EXPECT_TRUE(PackageComponentEditor::components(sandbox.url()).empty());
    const auto component = [&](const std::string& folder, const std::string& identifier) {
        sandbox.write(folder + "/PackageInfo",
                      "<pkg-info identifier='" + identifier + "' version='1' install-location='/usr'/>");
    };
    component("z.pkg", "com.a");
    component("a.pkg", "com.b");
    component("y.pkg", "com.a");
    component("é.pkg", "com.f");
    component("other.pkgx", "com.c");
    component("capitals.PKG", "com.d");
    sandbox.write("file.pkg", "no folder");
    std::filesystem::create_directory_symlink(sandbox / "a.pkg", sandbox / "link.pkg");
    std::vector<std::string> names;
    for (const auto& descriptor : PackageComponentEditor::components(sandbox.url())) {
        names.push_back(descriptor.identifier + " " + descriptor.archiveName + " " + descriptor.installLocation);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"com.a y.pkg /usr", "com.a z.pkg /usr", "com.b a.pkg /usr",
                                               "com.f é.pkg /usr"}));
}

TEST(PackageComponentEditor, namesWhatCannotBeRead) {
    const Sandbox sandbox;
    const FileURL folder = sandbox / "Tool.pkg";
    const FileURL packageInfo = folder / "PackageInfo";
    FileManager::createDirectory(folder);
    EXPECT_EQ(errorOf(folder), "Cannot read " + packageInfo.string() + ": No such file or directory");
    for (const char* text : {"<pkg-info/>", "<pkg-info identifier=''/>", "<info identifier='com.x'/>",
                             "<x:pkg-info xmlns:x='urn:x' identifier='com.x'/>"}) {
        sandbox.write("Tool.pkg/PackageInfo", text);
        EXPECT_EQ(errorOf(folder), "Cannot read component identifier from Tool.pkg") << text;
    }
    sandbox.write("Tool.pkg/PackageInfo", "<pkg-info identifier='com.x'>");
    EXPECT_EQ(errorOf(folder).find(packageInfo.string() + ": line 1: "), 0U);
}

TEST(PackageComponentCatalog, expandsIntoAFolderThatIsGoneAfterwards) {
    const FakeTools fakes;
    fakes.tool(
        "pkgutil",
        R"(mkdir -p "$3" && echo '<pkg-info identifier="com.x"/>' > "$3/PackageInfo" && chmod 0 "$3/PackageInfo" && chmod 600 "$3/PackageInfo")");
    EXPECT_EQ(PackageComponentCatalog::inspect("/in/Tool 1.pkg").size(), 1U);
    fakes.tool("pkgutil", R"(mkdir -p "$3/kept" && chmod 500 "$3"; exit 1)");
    try {
        PackageComponentCatalog::inspect("/in/Tool.pkg");
        FAIL();
    } catch (const PipelineError& error) {
        EXPECT_EQ(error.errorDescription(), "Not a flat pkg, or metadata expansion failed");
    }
    ASSERT_EQ(fakes.calls().size(), 2U);
    for (const std::string& call : fakes.calls()) {
        const FileURL expanded = call.substr(call.rfind('|') + 1);
        EXPECT_EQ(call.find("pkgutil|--expand|/in/Tool"), 0U);
        EXPECT_EQ(expanded.filename(), "expanded");
        EXPECT_EQ(lastPathComponent(expanded.parent_path()).find("corvane-components-"), 0U);
        EXPECT_FALSE(FileManager::fileExists(expanded.parent_path()));
    }
}

/// An expanded product whose components a.pkg, b.pkg ... have the identifiers that are given.
class RemovalTest : public testing::Test {
  protected:
    void components(const std::vector<std::string>& identifiers) const {
        for (std::size_t index = 0; index < identifiers.size(); ++index) {
            sandbox.write(std::string(1, static_cast<char>('a' + index)) + ".pkg/PackageInfo",
                          "<pkg-info identifier='" + identifiers[index] + "'/>");
        }
    }

    /// What is left of a Distribution with this content, without declaration and white space between elements; or the
    /// error, when the file is as it was.
    std::string removing(const std::vector<std::string>& identifiers, const std::string& content) const {
        const std::string before = "<d>" + content + "</d>";
        sandbox.write("Distribution", before);
        try {
            removed = PackageComponentEditor::removeComponents(identifiers, sandbox.url());
        } catch (const PipelineError& error) {
            EXPECT_EQ(TestSupport::read(sandbox / "Distribution"), before);
            return error.what();
        }
        std::string after;
        const auto document = XML::Document::read(sandbox / "Distribution");
        for (const XML::Node& space : document.query("//text()[normalize-space()='']")) space.remove();
        for (const XML::Node& child : document.root().elements()) after += child.serialized();
        return after;
    }

    Sandbox sandbox;
    mutable std::vector<PackageComponentDescriptor> removed;
};

TEST_F(RemovalTest, takesChoicesLinesAndReferencesOut) {
    components({"com.a", "com.b"});
    const struct {
        std::string before;
        std::string after;
    } cases[] = {
        {"<title>com.a</title><options x='com.a'/>", "<title>com.a</title><options x=\"com.a\"/>"},
        {"<choices-outline><line choice='x'><line choice='y'/></line><line choice='z'/></choices-outline>"
         "<choice id='x'><n><pkg-ref id='com.a'/></n></choice><choice id='z'><pkg-ref id='com.b'/></choice>"
         "<pkg-ref id='com.a'>#a.pkg</pkg-ref><pkg-ref id='com.b'>#b.pkg</pkg-ref>",
         "<choices-outline><line choice=\"z\"/></choices-outline><choice id=\"z\"><pkg-ref id=\"com.b\"/></choice>"
         "<pkg-ref id=\"com.b\">#b.pkg</pkg-ref>"},
        {"<choice id='both'><pkg-ref id='com.a'/><pkg-ref id='com.b'/></choice><pkg-ref id='com.b'>#b.pkg</pkg-ref>",
         "<pkg-ref id=\"com.b\">#b.pkg</pkg-ref>"},
        {"<choice id='com.a'/><choice><choice id='inner'><pkg-ref id='com.a'/></choice></choice>"
         "<line choice='inner'/><line choice='com.a'/><line/><choice id='COM.A'/>",
         "<line/><choice id=\"COM.A\"/>"},
    };
    for (const auto& [before, after] : cases) EXPECT_EQ(removing({"com.a", "com.a"}, before), after);
    ASSERT_EQ(removed.size(), 1U);
    EXPECT_EQ(removing({"com.b", "com.a"}, ""), "");
    EXPECT_EQ(removed[0].archiveName + removed[1].archiveName, "b.pkga.pkg");
    EXPECT_EQ(removing({}, "<choice id='com.a'/>"), "<choice id=\"com.a\"/>");
}

TEST_F(RemovalTest, changesNothingWhenAStepFails) {
    components({"com.a", "com.b", "com.b"});
    const struct {
        std::vector<std::string> identifiers;
        std::string distribution;
        std::string error;
    } cases[] = {
        {{"com.a", "COM.A"}, "", "Component ID not found: COM.A"},
        {{"com"}, "", "Component ID not found: com"},
        {{"com.b"}, "", "Component ID is ambiguous: com.b appears in b.pkg, c.pkg"},
        {{"com.a"},
         "<pkg-ref id='other'> #a.pkg </pkg-ref>",
         "Distribution still references a removed component archive"},
    };
    for (const auto& [identifiers, distribution, error] : cases) EXPECT_EQ(removing(identifiers, distribution), error);
    std::filesystem::remove(sandbox / "Distribution");
    EXPECT_THROW(PackageComponentEditor::removeComponents({"com.a"}, sandbox.url()), PipelineError);
}

} // namespace
} // namespace corvane
