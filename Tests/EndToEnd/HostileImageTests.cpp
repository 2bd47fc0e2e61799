// Disk images that are damaged, or made to harm whoever attaches them: the job says in one line what is wrong, and
// nothing outside of its own folders changes.

#include "Support/FileManager.hpp"
#include "Tests/EndToEnd/SigningMachine.hpp"
#include "Tests/Platform/Formats/Apfs/TestContainer.hpp"
#include "Tests/Platform/Formats/HfsPlus/TestVolume.hpp"
#include "Tests/Platform/Formats/Udif/TestImage.hpp"

#include <algorithm>

namespace corvane {
namespace {

using namespace TestSupport;
using Strings = std::vector<std::string>;

/// A name as a catalog has it.
std::string units(const std::string& name) {
    std::string result;
    for (const char each : name) result += {'\0', each};
    return result;
}

/// All places where some bytes stand hold others as long.
std::string replaced(std::string bytes, const std::string& from, const std::string& to) {
    for (std::size_t at = bytes.find(from); at != std::string::npos; at = bytes.find(from, at + to.size())) {
        bytes.replace(at, to.size(), to);
    }
    return bytes;
}

std::string patched(std::string bytes, std::size_t at, const std::string& with) {
    return bytes.replace(at, with.size(), with);
}

class HostileImageTest : public testing::Test {
  protected:
    HostileImageTest() {
        machine.sandbox().write("canary/file", "untouched");
        machine.sandbox().write("home/file", "untouched");
    }

    SigningMachine machine;
};

TEST_F(HostileImageTest, isRefusedInOneLineAndContained) {
    const std::string canary = (machine / "canary").string();
    const TestTree tree{{"AA.app/Contents/file", {.data = std::string(9000, 'x')}},
                        {"BB.app/Contents/file", {.data = "over"}},
                        {"UP", {}},
                        {"link", {.mode = 0120755, .data = canary}}};
    const std::string volume = testVolume(tree);
    const std::string good = TestImage::image(volume);
    const auto image = [&](const TestImage::Options& options) { return TestImage::image({{volume}}, options); };
    const auto renamed = [&](const std::string& from, const std::string& to) {
        return TestImage::image(replaced(volume, units(from), to));
    };
    const auto container = [](const std::function<void(std::string&)>& damage) {
        std::string bytes = testContainer({{"file-one", {.data = "x"}}, {"file-two", {}}});
        damage(bytes);
        return TestImage::image(bytes);
    };
    // A link to a folder outside, and a folder of the same name with a file in it.
    const std::string throughLink = TestImage::image(
        replaced(testVolume({{"evil", {.mode = 0120755, .data = canary}}, {"exil/file", {.data = "over"}}}),
                 units("exil"), units("evil")));
    const std::size_t catalog = 1024 + 272;
    const struct {
        const char* name;
        std::string image;
        const char* reason;
    } cases[] = {
        {"trailer cut", good.substr(0, good.size() - 512), "holds no volume of a known kind"},
        {"half", good.substr(0, good.size() / 2), "holds no volume of a known kind"},
        {"nothing", "", "expected at least a sector"},
        {"chunk damaged", patched(good, 20, "junk"), "disk image: "},
        {"checksum of a table", image({.tableError = 1}), "the checksum of the table"},
        {"checksum of all", image({.masterError = 1}), "the checksum of all tables"},
        {"checksum of the data", image({.dataError = 1}), "the checksum of the data fork"},
        {"tables past the end", patched(good, good.rfind("koly") + 216, "\x7f"), "expected a part within"},
        {"claimed sectors", patched(good, good.rfind("koly") + 492, "\x7f"), "expected tables of"},
        {"tables that nest", patched(good, good.find("<plist"), "<oops>"), "property list"},
        {"..", renamed("UP", units("..")), "expected the name of a file"},
        {"NUL", renamed("link", std::string(2, '\0')), "expected the name of a file"},
        {"same names", TestImage::image(replaced(volume, units("BB"), units("AA"))), "two items named"},
        {"through a link", throughLink, "two items named"},
        {"loop of the catalog", TestImage::image(patched(volume, catalog + 16, std::string(4, '\xff'))), "hfsplus"},
        {"4294967295 blocks", TestImage::image(patched(volume, catalog + 20, std::string(4, '\xff'))), "hfsplus"},
        {"object map in a circle", container([](std::string& bytes) {
             setField(bytes, volumeMapTree, 4096 - 40 - 16, 8, volumeMapTree);
             setField(bytes, volumeMapTree, 32, 4, 0x10005);
         }),
         "one node twice"},
        {"4294967295 records", container([](std::string& bytes) { setField(bytes, volumeMapTree, 36, 4, ~0U); }),
         "less room"},
        {"slash in a container", container([](std::string& bytes) { replaceInLeaves(bytes, "file-one", "file/one"); }),
         "expected the name of a file"},
        {"device", TestImage::image(testVolume({{"AA.app/device", {.mode = 0020666}}})), "device"},
    };
    const std::string before = machine.snapshot();
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        const FileURL input = machine.sandbox().write("in/vendor.dmg", each.image);
        const Outcome outcome = machine.corvane({"dmg-to-pkg", input.string(), "--unsigned", "--allow-untrusted",
                                                 "--output-dir", (machine / "out").string()});
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 3) << outcome.errors;
        const std::string start =
            "==> Mount disk image\n    Automatic mount needs user interaction: hdiutil: attach failed - ";
        EXPECT_EQ(outcome.errors.find(start), 0U) << outcome.errors;
        EXPECT_NE(outcome.errors.find(each.reason), std::string::npos) << outcome.errors;
        EXPECT_EQ(machine.snapshot(), before);
    }
}

/// A number in the place of a file's stands for as many entries as it can claim.
TEST_F(HostileImageTest, claimsOfManyEntriesCostNothing) {
    const std::string volume = testVolume({{"AA.app/Contents/file", {}}});
    std::string claimed = volume;
    const auto catalog = [&] {
        std::uint32_t block = 0;
        for (int index = 0; index < 4; ++index) {
            block = block << 8 | static_cast<unsigned char>(volume[std::size_t(1024 + 272 + 16 + index)]);
        }
        return std::size_t(block) * 4096;
    }();
    claimed.replace(catalog + 20, 4, std::string("\0\x98\x96\x80", 4)); // 10 million records
    const FileURL input = machine.sandbox().write("in/vendor.dmg", TestImage::image(claimed));
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    const std::string limit; // sanitizers take terabytes of addresses
#else
    const std::string limit = "ulimit -v 2000000; ";
#endif
    const Outcome outcome = run({"sh", "-c", limit + "exec \"$@\"", "sh", program("libexec/corvane/hdiutil").string(),
                                 "attach", input.string()});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.errors.find("hfsplus catalog: "), std::string::npos) << outcome.errors;
    EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1);
}

} // namespace
} // namespace corvane
