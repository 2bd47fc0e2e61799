#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Gzip/Writer.hpp"
#include "Platform/Formats/PartitionMap/PartitionMap.hpp"
#include "Platform/Formats/Udif/Adc.hpp"
#include "Platform/Formats/Udif/ChunkedDisk.hpp"
#include "Platform/Formats/Udif/EncryptedAccess.hpp"
#include "Platform/Formats/Udif/Image.hpp"
#include "Platform/Formats/Udif/Licence.hpp"
#include "Tests/Platform/Formats/MemoryAccess.hpp"
#include "Tests/Platform/Formats/Udif/TestImage.hpp"
#include "Tests/TestSupport.hpp"

#include <filesystem>
#include <functional>
#include <future>

namespace corvane::Udif {
namespace {

using namespace std::string_literals;

std::string text(std::size_t size) {
    std::string lines;
    for (std::size_t line = 0; lines.size() < size; ++line) lines += std::to_string(line * line) + "\n";
    lines.resize(size);
    return lines;
}

std::string contentOf(const RandomAccess& disk) {
    std::string bytes(disk.size(), '\1');
    disk.read(0, bytes);
    return bytes;
}

std::string errorOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const FormatError& error) {
        return error.what();
    }
    return {};
}

class UdifImage : public testing::Test {
  protected:
    std::unique_ptr<Image> open(const std::string& bytes) { return Image::open(sandbox_.write("Test.dmg", bytes)); }
    std::unique_ptr<Image> open(const std::string& bytes, const std::string& password) {
        return Image::open(sandbox_.write("Test.dmg", bytes), password);
    }
    TestSupport::Sandbox sandbox_;
};

TEST_F(UdifImage, givesTheDiskOfEveryKindOfChunk) {
    const struct {
        ChunkKind kind;
        const char* name;
    } cases[]{
        {ChunkKind::zero, "UDIF read-only"},
        {ChunkKind::ignore, "UDIF read-only"},
        {ChunkKind::raw, "UDIF read-only"},
        {ChunkKind::adc, "UDIF read-only compressed (ADC)"},
        {ChunkKind::zlib, "UDIF read-only compressed (zlib)"},
        {ChunkKind::bzip2, "UDIF read-only compressed (bzip2)"},
        {ChunkKind::lzfse, "UDIF read-only compressed (lzfse)"},
        {ChunkKind::xz, "UDIF read-only compressed (lzma)"},
    };
    const std::string disk = text(5 * 512);
    for (const auto& item : cases) {
        SCOPED_TRACE(static_cast<std::uint32_t>(item.kind));
        // Three chunks, and a second table.
        const auto image = open(
            TestImage::image({{disk, {item.kind}}, {disk, {ChunkKind::raw}}}, {.chunkSize = 1024, .dataOffset = 100}));
        const bool isEmpty = item.kind == ChunkKind::zero || item.kind == ChunkKind::ignore;
        EXPECT_TRUE(contentOf(*image) == (isEmpty ? std::string(disk.size(), '\0') : disk) + disk);
        EXPECT_EQ(image->kind(), item.name);
        EXPECT_EQ(errorOf([&] { image->verify(); }), "");
        std::string tooMuch(2, ' ');
        EXPECT_THROW(image->read(disk.size() * 2 - 1, tooMuch), FormatError);
    }
}

TEST_F(UdifImage, isReadByManyThreads) {
    const std::string disk = text(1 << 20);
    const auto image =
        open(TestImage::image({{disk, {ChunkKind::zlib, ChunkKind::raw, ChunkKind::adc}}}, {.chunkSize = 64 * 512}));
    const auto matches = [&](std::size_t start) {
        bool isSame = true;
        std::string piece(700, '\0');
        for (std::size_t at = start; at + piece.size() <= disk.size(); at += 2311) {
            image->read(at, piece);
            isSame = isSame && disk.compare(at, piece.size(), piece) == 0;
        }
        return isSame;
    };
    std::vector<std::future<bool>> readers;
    for (const std::size_t start : {0U, 100'000U, 0U, 500'001U}) {
        readers.push_back(std::async(std::launch::async, matches, start));
    }
    for (std::future<bool>& reader : readers) EXPECT_TRUE(reader.get());
}

/// What is wrong with a chunk that was decoded in the background is said to whoever reads it, each time.
TEST_F(UdifImage, isReadAheadPastDamage) {
    constexpr std::size_t size = 8192;
    const std::string disk = text(100 * size);
    std::string bytes = TestImage::image({{disk, {ChunkKind::zlib}}}, {.chunkSize = size});
    bytes.replace(bytes.find(Gzip::compressed(disk.substr(50 * size, size), Gzip::Framing::zlib, 6)) + 100, 4, "junk");
    const auto image = open(bytes);
    std::string piece(size / 4, '\0');
    for (std::size_t at = 0; at < disk.size(); at += piece.size()) {
        SCOPED_TRACE(at);
        const std::string error = errorOf([&] { image->read(at, piece); });
        EXPECT_EQ(error.find("disk image: the chunk of sector 800 is damaged") == 0, at / size == 50) << error;
        EXPECT_TRUE(at / size == 50 || disk.compare(at, piece.size(), piece) == 0);
    }
    EXPECT_NE(errorOf([&] { image->verify(); }), "");
}

TEST_F(UdifImage, isVerifiedAfterItWasRead) {
    const std::string disk = text(200 * 512);
    for (const std::uint32_t error : {0U, 1U}) {
        const auto image = open(TestImage::image({{disk}}, {.chunkSize = 8192, .tableError = error}));
        EXPECT_TRUE(contentOf(*image) == disk);
        EXPECT_EQ(errorOf([&] { image->verify(); }).empty(), error == 0);
    }
}

/// Changes bytes of an image, found by the text before them.
std::string changed(std::string image, const std::string& anchor, std::size_t distance, const std::string& bytes) {
    return image.replace(image.rfind(anchor) + distance, bytes.size(), bytes);
}

TEST_F(UdifImage, namesWhatIsWrong) {
    const std::string disk = text(4096);
    const std::string good = TestImage::image(disk);
    const auto kind = [&](std::uint32_t number) { return TestImage::image(disk, static_cast<ChunkKind>(number)); };
    const TestImage::Options large{.chunkSize = std::uint64_t{33} << 20};
    const struct {
        std::string image;
        std::string error;
    } cases[]{
        {TestImage::image({{disk, {ChunkKind::zlib}, "Data"}}, {.tableError = 1}), "the checksum of the table Data is"},
        {TestImage::image({{disk}}, {.masterError = 1}), "the checksum of all tables is"},
        {TestImage::image({{disk}}, {.dataError = 1}), "the checksum of the data fork is"},
        {changed(good, "koly", 352 + 3, "\x08"), "the checksum of all tables is of the unknown kind 8"},
        {changed(good, "<?xml", std::size_t(0) - 9, "junk"), "the chunk of sector 0 is damaged"},
        {changed(good, "koly", 499, "\x09"), "expected tables of 9 sectors, found 8"},
        {changed(good, "koly", 7, "\x05"), "expected version 4"},
        {changed(good, "koly", 63, "\x02"), "images in several segments are not supported"},
        {changed(good, "koly", 216, "\x01"), "expected a part within"},
        {changed(good, "koly", 224, std::string(8, '\0')), "images whose tables stand in a resource fork"},
        {changed(good, "<plist", 0, "<oops>"), "property list"},
        {changed(changed(good, "koly", 29, "\1"), "koly", 32, std::string(8, '\0')), "lies outside the file"},
        {kind(0x80000009), "expected a known kind of chunk, found 2147483657"},
        {TestImage::image({{std::string(large.chunkSize, 'x')}}, large),
         "expected a compressed chunk of at most 32 MiB"},
        {good.substr(0, 100), "expected at least a sector"},
        {"sprs" + disk, "sparse images are not supported"},
        {disk + "cdsaencr", "images of the first kind of encryption are not supported"},
    };
    for (const auto& item : cases) {
        SCOPED_TRACE(item.error);
        EXPECT_NE(errorOf([&] { open(item.image)->verify(); }).find(item.error), std::string::npos)
            << errorOf([&] { open(item.image)->verify(); });
    }
    const TestSupport::MemoryAccess file(disk);
    const Chunk whole{.kind = ChunkKind::raw, .sectorCount = 8, .length = 4096};
    const Chunk shared{.kind = ChunkKind::raw, .firstSector = 8, .sectorCount = 1, .length = 512};
    EXPECT_THROW(ChunkedDisk(file, 0, {whole, shared}), FormatError);
    sandbox_.write("Bundle/bands/0", disk);
    EXPECT_THROW(Image::open(sandbox_ / "Bundle"), FormatError);
    EXPECT_EQ(contentOf(*open(disk)), disk);
    EXPECT_EQ(open(disk)->kind(), "read/write");
}

TEST_F(UdifImage, opensWithItsPassword) {
    const std::string disk = text(4096 + 512);
    for (const unsigned bits : {128U, 256U}) {
        SCOPED_TRACE(bits);
        const std::string bytes = TestImage::encrypted(TestImage::image(disk), "open sesame", bits);
        EXPECT_THROW(open(bytes), EncryptedImage);
        EXPECT_THROW(open(bytes, "sesame"), WrongPassword);
        EXPECT_THROW(open(bytes.substr(0, bytes.size() - 1024), "open sesame"), FormatError);
        const auto image = open(bytes, "open sesame");
        EXPECT_TRUE(contentOf(*image) == disk);
        EXPECT_TRUE(image->isEncrypted());
        EXPECT_NO_THROW(image->verify());
    }
}

TEST_F(UdifImage, asksForItsLicence) {
    // The default region is 3, whose texts are numbered one behind the first.
    const std::string languages = "\0\3\0\2\0\0\0\0\0\0\0\3\0\1\0\0"s;
    const std::string rtf = "{\\rtf1\\ansi{\\fonttbl{\\f0 Times;}}{\\*\\x hidden}\\f0\\b Fair\\'e9\\par\n"
                            "\\uc1\\u8364?5 \\{a\\}\\tab b}";
    const auto licence = [&](const std::string& type, int number, const std::string& bytes) {
        return open(TestImage::image({{"x"}}, {.resources = {{{"LPic", 5000}, languages}, {{type, number}, bytes}}}))
            ->licence();
    };
    EXPECT_EQ(licence("TEXT", 5001, "Caf\x8e\rnext"), "Caf\u00e9\nnext");
    EXPECT_EQ(licence("TEXT", 5000, "Caf\u00e9"), "Caf\u00e9");
    EXPECT_EQ(licence("RTF ", 5001, rtf), "Fair\u00e9\n\u20ac5 {a}\tb");
    EXPECT_EQ(licence("styl", 5001, "x"), "");
    EXPECT_EQ(open(TestImage::image("x"))->licence(), std::nullopt);
    EXPECT_EQ(open(TestImage::image({{"x"}}, {.codeSignature = "blobs"}))->codeSignature(), "blobs");
    EXPECT_EQ(open(TestImage::image("x"))->codeSignature(), std::nullopt);
}

TEST_F(UdifImage, hasAPartitionMap) {
    const std::string volume = text(4096);
    const auto map = [&](const std::string& disk) { return PartitionMap::read(*open(disk)); };
    const PartitionMap::Map guid = map(TestImage::guidDisk(volume));
    ASSERT_EQ(guid.parts.size(), 1U);
    EXPECT_EQ(guid.parts[0].type, "48465300-0000-11AA-AA11-00306543ECAC");
    EXPECT_EQ(guid.parts[0].name, "disk image");
    EXPECT_EQ(guid.parts[0].offset, 40U * 512);
    EXPECT_EQ(guid.parts[0].size, volume.size());
    const PartitionMap::Map apple = map(TestImage::appleDisk(volume));
    ASSERT_EQ(apple.parts.size(), 2U);
    EXPECT_EQ(apple.parts[1].type, "Apple_HFS");
    EXPECT_EQ(apple.parts[1].offset, 64U * 512);
    EXPECT_EQ(map(volume).parts.size(), 1U);
    const std::string disks[]{
        changed(TestImage::guidDisk(volume), "EFI PART", 83, "\1"),              // too many parts
        changed(TestImage::guidDisk(volume), "EFI PART", 79, "\x7f"),            // parts outside the disk
        changed(TestImage::guidDisk(volume), std::string(16, '\1'), 20, "\x7f"), // a part outside the disk
        changed(TestImage::appleDisk(volume), "PM", 4, "\1"),
        changed(TestImage::appleDisk(volume), "PM", 8, "\1"),
        TestImage::appleDisk(volume).substr(0, 1024),
    };
    for (const std::string& disk : disks) EXPECT_THROW(map(disk), FormatError);
}

TEST(Adc, followsEveryOperation) {
    EXPECT_EQ(decodeAdc("\x82"
                        "abc\x00\x02\x41\x00\x00"s,
                        3 + 3 + 5),
              "abcabcccccc");
    for (const std::string& stream : {"\x82"
                                      "ab"s,
                                      "\x00\x00"s,
                                      "\x80"
                                      "a\x00\x01"s,
                                      "\x40\x00"s}) {
        EXPECT_THROW(decodeAdc(stream, 3), FormatError);
    }
}

/// The password of those whose maker has told it.
constexpr const char* knownPassword = "testpass";

TEST(UdifSamples, areWhole) {
    CORVANE_REQUIRE_SAMPLES();
    std::size_t opened = 0;
    std::size_t signedOnes = 0;
    for (const auto& file : std::filesystem::directory_iterator(*TestSupport::samples() / "dmg")) {
        if (file.path().extension() != ".dmg") continue;
        SCOPED_TRACE(file.path().filename());
        try {
            const auto image = Image::open(file.path(), knownPassword);
            image->verify();
            EXPECT_FALSE(PartitionMap::read(*image).parts.empty());
            if (const auto blobs = image->codeSignature()) {
                ++signedOnes;
                EXPECT_TRUE(blobs->starts_with("\xfa\xde\x0c\xc0"));
            }
            ++opened;
        } catch (const WrongPassword&) {
            EXPECT_TRUE(file.path().stem() == "dmgwiz-aes256" || file.path().stem() == "r2_src-aes-128");
        }
    }
    EXPECT_GT(opened, 30U);
    EXPECT_EQ(signedOnes, 5U);
}

TEST(UdifSamples, areTheSameInEveryCodec) {
    CORVANE_REQUIRE_SAMPLES();
    const auto disk = [](const std::string& codec) {
        return contentOf(*Image::open(*TestSupport::samples() / "dmg" / ("dmgwiz-apfs-" + codec + ".dmg")));
    };
    const std::string raw = disk("ro");
    for (const char* codec : {"adc", "bzip2", "lzfse", "lzma", "zlib"}) EXPECT_TRUE(disk(codec) == raw) << codec;
}

} // namespace
} // namespace corvane::Udif
