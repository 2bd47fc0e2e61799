#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/MachO/Image.hpp"
#include "Support/UniqueDescriptor.hpp"
#include "Tests/Platform/Formats/CodeSignature/TestCode.hpp"
#include "Tests/TestSupport.hpp"

#include <fcntl.h>

namespace corvane::MachO {
namespace {

using namespace TestSupport;

/// A file of some bytes, for readers that want one.
class File {
  public:
    explicit File(const std::string& bytes)
        : url_(sandbox_.write("code", bytes)),
          descriptor_(::open(url_.c_str(), O_RDONLY | O_CLOEXEC)),
          slices_(MachO::slices(std::string_view(bytes).substr(0, headerSize), bytes.size())) {}

    const std::vector<Slice>& slices() const { return slices_; }
    Image image(std::size_t index) const { return Image::read(descriptor_.get(), url_, slices_.at(index)); }
    bool isTight() const { return isTightlyPacked(descriptor_.get(), url_); }

  private:
    Sandbox sandbox_;
    FileURL url_;
    UniqueDescriptor descriptor_;
    std::vector<Slice> slices_;
};

std::string patched(std::string bytes, std::size_t at, const std::string& replacement) {
    return bytes.replace(at, replacement.size(), replacement);
}

const std::vector<std::pair<Architecture, const char*>> architectures{{i386, "i386"},
                                                                      {x86_64, "x86_64"},
                                                                      {arm64, "arm64"},
                                                                      {arm64e, "arm64e"},
                                                                      {ppc, "ppc"},
                                                                      {ppc64, "ppc64"},
                                                                      {{5, 6}, "cputype 5 subtype 6"}};

TEST(MachOImage, saysWhereThingsAre) {
    std::vector<std::vector<std::pair<Architecture, const char*>>> files{architectures};
    for (const auto& each : architectures) files.push_back({each});
    for (const auto& file : files) {
        CodeShape shape{.architectures = {}, .infoPropertyList = "a list"};
        for (const auto& [architecture, name] : file) shape.architectures.push_back(architecture);
        const std::string bytes = machO(shape).bytes;
        const File code(bytes);
        EXPECT_TRUE(code.isTight()) << file[0].second;
        ASSERT_EQ(code.slices().size(), file.size());
        for (std::size_t index = 0; index < file.size(); ++index) {
            SCOPED_TRACE(file[index].second);
            const Slice& slice = code.slices()[index];
            const auto at = [&](const Range& range) { return bytes.substr(slice.offset + range.offset, range.size); };
            const Image image = code.image(index);
            ASSERT_TRUE(image.signature && image.linkEdit && image.infoPropertyList);
            EXPECT_EQ(architectureName(slice), file[index].second);
            EXPECT_EQ(at(*image.infoPropertyList), "a list");
            EXPECT_TRUE(at(*image.signature).starts_with("\xFA\xDE\x0C\xC0"));
            EXPECT_EQ(image.signature->end(), slice.size);
            EXPECT_EQ(image.linkEdit->end(), slice.size);
        }
    }
    const Image plain = File(machO({.architectures = {arm64}, .isSigned = false}).bytes).image(0);
    EXPECT_TRUE(plain.linkEdit && !plain.signature && !plain.infoPropertyList);
}

TEST(MachOImage, refusesCommandsThatContradictTheSlice) {
    // The header's 32 bytes, __TEXT at 32, __LINKEDIT at 104, the signature's command at 176.
    const std::string good = machO({.architectures = {x86_64}}).bytes;
    const struct {
        const char* name;
        std::string bytes;
    } cases[] = {
        {"commands longer than the slice", patched(good, 20, littleEndian(good.size() - 31, 4))},
        {"more commands than there are bytes for", patched(good, 16, littleEndian(4, 4))},
        {"command without a size", patched(good, 36, littleEndian(0, 4))},
        {"command past the commands", patched(good, 180, littleEndian(17, 4))},
        {"more sections than the command has", patched(good, 96, littleEndian(0xFFFFFFFF, 4))},
        {"segment past the slice", patched(good, 152, littleEndian(good.size(), 8))},
        {"segment whose end passes 64 bits", patched(good, 144, littleEndian(~std::uint64_t{0}, 8))},
        {"signature past the slice", patched(good, 188, littleEndian(0x7FFFFFFF, 4))},
        {"two signatures",
         patched(patched(patched(good, 16, littleEndian(4, 4)), 20, littleEndian(176, 4)), 192, good.substr(176, 16))},
        {"two __LINKEDIT", patched(good, 40, good.substr(112, 48))},
        {"cut short", good.substr(0, 190)},
        {"slice of something else", patched(machO().bytes, 4096, "!<ar")},
    };
    for (const auto& each : cases) EXPECT_THROW(File(each.bytes).image(0), FormatError) << each.name;
}

TEST(MachOImage, knowsRoomForHiddenBytes) {
    const std::string thin = machO({.architectures = {x86_64}}).bytes;
    const std::string fat = machO().bytes;
    const File whole(fat);
    const Slice first = whole.slices().at(0);
    const auto second = static_cast<std::uint32_t>(whole.slices().at(1).offset);
    ASSERT_LT(first.offset + first.size, second);
    const struct {
        const char* name;
        std::string bytes;
    } cases[] = {
        {"bytes behind a thin file", thin + '\0'},
        {"bytes behind the last slice", fat + '\0'},
        {"bytes behind __LINKEDIT", patched(thin, 152, littleEndian(64, 8))},
        {"no __LINKEDIT", patched(thin, 112, std::string("__LINKED\0\0", 10))},
        {"bytes behind the header", patched(fat, 4000, "x")},
        {"bytes between the slices", patched(fat, second - 1, "x")},
        {"gap wider than the alignment", patched(fat, 24, bigEndian(11))},
        {"alignment that no linker writes", patched(fat, 24, bigEndian(64))},
        {"overlapping slices", patched(fat, 36, bigEndian(first.offset))},
    };
    for (const auto& each : cases) EXPECT_FALSE(File(each.bytes).isTight()) << each.name;
    EXPECT_THROW(File("a script\n").isTight(), FormatError);
}

} // namespace
} // namespace corvane::MachO
