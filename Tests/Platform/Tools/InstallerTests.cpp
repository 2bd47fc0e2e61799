#include "Support/FileManager.hpp"
#include "Tests/TestSupport.hpp"

namespace corvane {
namespace {

using TestSupport::Sandbox;

TestSupport::Outcome packageInformation(const FileURL& package) {
    return TestSupport::run({TestSupport::program("libexec/corvane/installer"), "-pkginfo", "-pkg", package});
}

void flatten(const FileURL& folder, const FileURL& package) {
    const auto outcome =
        TestSupport::run({TestSupport::program("libexec/corvane/pkgutil"), "--flatten", folder, package});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
}

TEST(Installer, printsTheTitlesOfAProduct) {
    const auto outcome = packageInformation(TestSupport::source("Examples/Harbor Tools.pkg"));
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.output, "Harbor Tools\nHarbor Setup\nHarbor Monitor\n");
}

TEST(Installer, printsNamesWhereThereAreNoTitles) {
    const Sandbox sandbox;
    sandbox.write("product/Distribution",
                  "<installer-script><pkg-ref id='a'> #My%20Part.pkg </pkg-ref></installer-script>");
    sandbox.write("product/My Part.pkg/PackageInfo", "<pkg-info identifier='com.example.part'/>");
    flatten(sandbox / "product", sandbox / "Product.pkg");
    EXPECT_EQ(packageInformation(sandbox / "Product.pkg").output, "Product\ncom.example.part\n");
    flatten(sandbox / "product/My Part.pkg", sandbox / "Part.pkg");
    EXPECT_EQ(packageInformation(sandbox / "Part.pkg").output, "Part\n");
}

TEST(Installer, refusesWhatIsNoInstallablePackage) {
    const Sandbox sandbox;
    const std::vector<std::pair<const char*, std::vector<std::pair<std::string, std::string>>>> cases{
        {"nothing in it", {{"other", ""}}},
        {"Distribution is no XML", {{"Distribution", "<installer-script>"}}},
        {"component is missing", {{"Distribution", "<d><pkg-ref>#a.pkg</pkg-ref></d>"}}},
        {"component without PackageInfo", {{"Distribution", "<d><pkg-ref>#a.pkg</pkg-ref></d>"}, {"a.pkg/Bom", ""}}},
        {"PackageInfo is no XML", {{"PackageInfo", "pkg-info"}}},
        {"PackageInfo without identifier", {{"PackageInfo", "<pkg-info/>"}}},
        {"other root", {{"PackageInfo", "<package identifier='a'/>"}}},
    };
    const auto refuses = [](const FileURL& package) {
        const auto outcome = packageInformation(package);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.output, "");
        const std::string expected =
            "installer: Error - the package path specified was invalid: '" + package.string() + "'.\n";
        EXPECT_EQ(outcome.errors.substr(0, expected.size()), expected);
    };
    for (const auto& [name, files] : cases) {
        SCOPED_TRACE(name);
        const Sandbox folder;
        for (const auto& [path, content] : files) folder.write("in/" + path, content);
        flatten(folder / "in", folder / "a.pkg");
        refuses(folder / "a.pkg");
    }
    std::filesystem::copy_file(TestSupport::source("Examples/Harbor Tools.pkg"), sandbox / "product.mpkg");
    refuses(sandbox / "product.mpkg");
    refuses(sandbox / "missing.pkg");
    FileManager::createDirectory(sandbox / "folder.pkg");
    refuses(sandbox / "folder.pkg");
    std::string damaged = TestSupport::read(TestSupport::source("Examples/Harbor Tools.pkg"));
    damaged[40] = static_cast<char>(damaged[40] ^ 1);
    refuses(sandbox.write("damaged.pkg", damaged));
    EXPECT_EQ(TestSupport::run({TestSupport::program("libexec/corvane/installer"), "-pkginfo"}).status, 64);
}

TEST(Installer, acceptsRealPackages) {
    CORVANE_REQUIRE_SAMPLES();
    const FileURL folder = *TestSupport::samples() / "pkg";
    for (const FileURL& url : FileManager::contentsOfDirectory(folder)) {
        // Some are archives without a package in them; their names say so.
        const bool isPackage = !url.filename().string().starts_with("xar-");
        EXPECT_EQ(packageInformation(url).status, isPackage ? 0 : 1) << url;
    }
}

} // namespace
} // namespace corvane
