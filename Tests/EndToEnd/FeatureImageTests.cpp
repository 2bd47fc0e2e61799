// Disk images from attaching to copying and packing, against what was put in and against an independent reader.

#include "Platform/Formats/ExtendedAttributes/ExtendedAttributes.hpp"
#include "Support/FileManager.hpp"
#include "Tests/Platform/Formats/HfsPlus/TestFeatures.hpp"
#include "Tests/Platform/Formats/Udif/TestImage.hpp"
#include "Tests/TestSupport.hpp"
#include "Tests/TreeSnapshot.hpp"

#include <algorithm>
#include <filesystem>
#include <set>

namespace corvane {
namespace {

using namespace TestSupport;
using Strings = std::vector<std::string>;

Outcome tool(const std::string& name, Strings arguments, const RunOptions& options = {}) {
    arguments.insert(arguments.begin(), program("libexec/corvane/" + name));
    return run(arguments, options);
}

/// An image that is attached in a folder of its own for as long as this lives.
class Mount {
  public:
    /// @param input what hdiutil is answered
    explicit Mount(const FileURL& image, const std::string& input = "") {
        FileManager::createDirectory(url());
        const auto outcome = tool("hdiutil", {"attach", image, "-mountpoint", url(), "-stdinpass", "-nobrowse"},
                                  {.environment = environment(), .input = input});
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
    }
    Mount(const Mount&) = delete;
    Mount& operator=(const Mount&) = delete;
    ~Mount() {
        EXPECT_EQ(tool("hdiutil", {"detach", url()}, {.environment = environment()}).status, 0);
        EXPECT_TRUE(FileManager::contentsOfDirectory(url()).empty());
    }

    FileURL url() const { return sandbox_ / "volume"; }

  private:
    Strings environment() const { return {"XDG_STATE_HOME=" + (sandbox_ / "state").string()}; }

    Sandbox sandbox_;
};

/// The path under which an item was made that is reached through another name of itself or of a folder.
std::string madeAs(const TestTree& stored, const std::string& path) {
    const auto found = stored.find(path);
    if (found != stored.end() && !found->second.linkOf.empty()) return found->second.linkOf;
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : madeAs(stored, path.substr(0, slash)) + path.substr(slash);
}

std::map<std::string, std::string> expectedTree(const TestFeatures& made) {
    std::map<std::string, std::string> tree;
    std::map<std::string, std::string> firstNames;
    for (const auto& [path, item] : made.plain) {
        TreeItem seen{.mode = item.mode, .modified = {.tv_sec = item.modified, .tv_nsec = 0}, .content = item.data};
        if (S_ISLNK(item.mode)) seen.mode = S_IFLNK | 0777;
        if (S_ISREG(item.mode)) seen.firstName = firstNames.try_emplace(madeAs(made.stored, path), path).first->second;
        seen.attributes = item.attributes;
        if (!item.resourceFork.empty()) seen.attributes[ExtendedAttributes::resourceFork] = item.resourceFork;
        tree.emplace(path, described(seen));
    }
    return tree;
}

/// Names, bytes and link texts alone, which is what an archiver is good for.
/// @param moved what stands before the absolute links of this tree
std::map<std::string, std::string> contents(const FileURL& folder, const FileURL& moved = {}) {
    std::map<std::string, std::string> result;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (ExtendedAttributes::isCompanion(entry.path())) continue;
        std::string& text = result[entry.path().lexically_relative(folder)];
        if (entry.is_symlink()) {
            text = std::filesystem::read_symlink(entry.path());
            if (!moved.empty() && text.starts_with(moved.string() + "/")) text.erase(0, moved.string().size());
        } else {
            text = entry.is_directory() ? "folder" : described({.content = read(entry.path())});
        }
    }
    return result;
}

/// The paths of what stands in one of two trees alone, or is not the same in both.
std::set<std::string> differences(const std::map<std::string, std::string>& left,
                                  const std::map<std::string, std::string>& right) {
    std::set<std::string> paths;
    for (const auto& [path, text] : left) {
        if (!right.contains(path) || right.at(path) != text) paths.insert(path);
    }
    for (const auto& [path, text] : right) {
        if (!left.contains(path)) paths.insert(path);
    }
    return paths;
}

bool hasArchiver() { return run({"sh", "-c", "command -v 7zz"}).status == 0; }

/// What 7zz makes of an image, without attributes. It puts Mac OS Extended volumes into a folder of their name, with
/// the file system's own files, and moves absolute links into the folder that it extracts to.
std::map<std::string, std::string> archiversContents(const FileURL& image, const FileURL& mount) {
    const Sandbox sandbox;
    run({"7zz", "x", "-y", "-snld", "-sns-", "-o" + sandbox.url().string(), image});
    run({"chmod", "-R", "u+rwX", sandbox.url()});
    const auto top = FileManager::contentsOfDirectory(sandbox.url());
    const bool isNamed = top.size() == 1 && !FileManager::fileExists(mount / lastPathComponent(top[0]));
    auto found = contents(isNamed ? top[0] : sandbox.url(), sandbox.url());
    std::erase_if(found, [](const auto& item) {
        return item.first.starts_with(".HFS+ Private Directory Data\r") ||
               item.first.starts_with("[HFS+ Private Data]") || item.first == ".journal" ||
               item.first == ".journal_info_block";
    });
    return found;
}

/// What differs in 7zz 26: hard links and three kinds of compressed files are empty, and colons are replaced.
const std::set<std::string> archiversGaps{"Compressed/10",      "Compressed/11", "Compressed/12", "Links/Folder",
                                          "Links/Folder/below", "Links/file",    "Links/second",  "Other",
                                          "Other/below",        "a:b",           "a_b",           "third"};

/// A package has everything but the attributes of the root itself.
void expectPacked(const Sandbox& sandbox, const char* root, std::map<std::string, std::string> expected) {
    const RunOptions options{.folder = sandbox.url()};
    const auto packed = tool("pkgbuild", {"--root", root, "--identifier", "a.b", "packed.pkg"}, options);
    EXPECT_EQ(packed.status, 0) << packed.errors;
    EXPECT_EQ(tool("pkgutil", {"--expand-full", "packed.pkg", "expanded"}, options).status, 0);
    auto found = treeSnapshot(sandbox / "expanded/Payload");
    expected.erase(".");
    found.erase(".");
    expectSameTrees(expected, found);
}

/// The whole way of a volume with everything in it: attached, copied, packed.
TEST(FeatureImage, keepsEverythingOnItsWay) {
    const TestFeatures made = everyFeature();
    const auto expected = expectedTree(made);
    const std::vector<std::pair<const char*, std::string>> cases{
        {"plain", testVolume(made.stored)},
        {"journaled", testVolume(made.stored, {.isJournaled = true})},
        {"case-sensitive", testVolume(made.stored, {.isCaseSensitive = true})}};
    for (const auto& [name, disk] : cases) {
        SCOPED_TRACE(name);
        const Sandbox sandbox;
        const FileURL image = sandbox.write("image.dmg", TestImage::image(disk));
        const Mount mount(image);
        expectSameTrees(expected, treeSnapshot(mount.url()));
        if (hasArchiver()) {
            EXPECT_EQ(differences(contents(mount.url()), archiversContents(image, mount.url())), archiversGaps);
        }
        const auto copied = tool("ditto", {mount.url(), sandbox / "copy"});
        EXPECT_EQ(copied.status, 0) << copied.errors;
        expectSameTrees(expected, treeSnapshot(sandbox / "copy"));
        expectPacked(sandbox, "copy", expected);
    }
}

/// What is not the same as 7zz has it, because of hard links and of names with a colon.
const std::set<std::string> linkedAndNamed{"file_hardlink1", "testdir1/testfile1", "forward:slash", "forward_slash"};

struct ParticularImage {
    std::string image;
    /// What hdiutil is answered: a password up to a zero byte, the consent to a licence.
    std::string answers;
    std::set<std::string> gaps;
    /// Why it cannot be attached.
    std::string refusal;
};

const ParticularImage particularImages[]{
    {"keramics_hfsplus_adc.dmg", "", linkedAndNamed},
    {"keramics_hfsplus_bzip2.dmg", "", linkedAndNamed},
    {"keramics_hfsplus_lzfse.dmg", "", linkedAndNamed},
    {"keramics_hfsplus_lzma.dmg", "", linkedAndNamed},
    {"keramics_hfsplus_zlib.dmg", "", linkedAndNamed},
    {"sparkle_SparkleTestCodeSignApp.dmg", "Y\n", {}},
    {"sparkle_SparkleTestCodeSignApp.enc.dmg", std::string("testpass\0Y\n", 11), {}},
    {"sparkle_SparkleTestCodeSignApp.enc.nolicense.dmg", "testpass", {}},
    {"dmgwiz-aes256.dmg", "unknown", {}, "the password is wrong"},
    {"r2_src-aes-128.dmg", "unknown", {}, "the password is wrong"},
    {"foreign-example-fat32.dmg", "", {}, "FAT volumes are not supported"},
    {"nodeudif-lzfse-fat16.dmg", "", {}, "FAT volumes are not supported"},
};

/// Shares of the samples, since all of them take long under a sanitizer.
constexpr std::size_t shares = 6;
class ImageSamples : public testing::TestWithParam<std::size_t> {};
INSTANTIATE_TEST_SUITE_P(Shares, ImageSamples, testing::Range(std::size_t{0}, shares));

/// Bytes, names and links of every image that there is; of encrypted ones, which 7zz does not read, the application
/// as it is in an archive.
TEST_P(ImageSamples, areWhatAnArchiverReads) {
    CORVANE_REQUIRE_SAMPLES();
    if (!hasArchiver()) GTEST_SKIP() << "there is no 7zz here";
    const Sandbox sandbox;
    const std::string application = "SparkleTestCodeSignApp.app";
    run({"tar", "-xf", *samples() / "dmg/sparkle_SparkleTestCodeSignApp.tar", "-C", sandbox.url()});
    auto images = FileManager::contentsOfDirectory(*samples() / "dmg");
    std::erase_if(images,
                  [](const FileURL& file) { return pathExtension(file) != "dmg" && pathExtension(file) != "raw"; });
    ASSERT_GT(images.size(), 30U);
    std::sort(images.begin(), images.end());
    for (std::size_t index = GetParam(); index < images.size(); index += shares) {
        const FileURL& image = images[index];
        SCOPED_TRACE(image);
        const auto found = std::ranges::find(particularImages, lastPathComponent(image), &ParticularImage::image);
        const ParticularImage each = found == std::end(particularImages) ? ParticularImage{} : *found;
        if (!each.refusal.empty()) {
            FileManager::createDirectory(sandbox / "refused");
            const auto outcome =
                tool("hdiutil", {"attach", image, "-mountpoint", sandbox / "refused", "-stdinpass"},
                     {.environment = {"XDG_STATE_HOME=" + (sandbox / "state").string()}, .input = each.answers});
            EXPECT_EQ(outcome.status, 1);
            EXPECT_NE(outcome.errors.find(each.refusal), std::string::npos) << outcome.errors;
            continue;
        }
        const Mount mount(image, each.answers);
        // Some have folders that not even their owner may list.
        run({"chmod", "-R", "u+rwX", mount.url()});
        if (each.answers.starts_with("testpass")) {
            EXPECT_EQ(contents(mount.url() / application), contents(sandbox / application));
        } else {
            EXPECT_EQ(differences(contents(mount.url()), archiversContents(image, mount.url())), each.gaps);
        }
    }
}

} // namespace
} // namespace corvane
