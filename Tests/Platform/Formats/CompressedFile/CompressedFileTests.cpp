#include "Platform/Formats/CompressedFile/CompressedFile.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Support/FileManager.hpp"
#include "Tests/Platform/Formats/CompressedFile/TestCompression.hpp"
#include "Tests/Platform/Formats/MemoryAccess.hpp"
#include "Tests/TestSupport.hpp"

namespace corvane::CompressedFile {
namespace {

using TestSupport::MemoryAccess;
using TestSupport::testCompression;
using TestSupport::TestCompression;

std::string plain(const TestCompression& file) {
    std::unique_ptr<RandomAccess> fork;
    if (!file.resourceFork.empty()) fork = std::make_unique<MemoryAccess>(file.resourceFork);
    const auto source = open(file.attribute, std::move(fork));
    return readAll(*source, std::size_t{1} << 30, "test");
}

std::string errorOf(const TestCompression& file) {
    try {
        plain(file);
        return "";
    } catch (const FormatError& error) {
        return error.what();
    }
}

std::string longText() {
    std::string text;
    for (int line = 0; text.size() < 150'000; ++line) text += "line " + std::to_string(line) + "\n";
    return text;
}

TEST(CompressedFile, givesThePlainDataOfEveryKind) {
    for (const std::uint32_t kind : {3U, 4U, 7U, 8U, 9U, 10U, 11U, 12U}) {
        SCOPED_TRACE(kind);
        const bool isInline = kind % 2 == 1;
        const std::string whole(2 * 65536, 'w');
        for (const std::string& text : {std::string("short"), isInline ? std::string("x") : longText(), whole}) {
            EXPECT_TRUE(plain(testCompression(kind, text)) == text) << text.size();
        }
        const TestCompression file = testCompression(kind, "text");
        EXPECT_EQ(needsResourceFork(file.attribute), !isInline);
        EXPECT_EQ(plainSize(file.attribute), 4u);
    }
}

TEST(CompressedFile, refusesDamage) {
    const auto changed = [](std::uint32_t kind, std::size_t at, const std::string& bytes, bool inFork = true) {
        TestCompression file = testCompression(kind, longText());
        (inFork ? file.resourceFork : file.attribute).replace(at, bytes.size(), bytes);
        return file;
    };
    const std::string all(4, '\xFF');
    const std::string huge = std::string(7, '\xFF') + '\x7F';
    struct Case {
        const char* name;
        TestCompression file;
        const char* problem;
    };
    const std::vector<Case> cases{
        {"no magic", {"fpm", ""}, "expected 4 more bytes"},
        {"cut", {std::string("fpmc\3\0\0\0\1", 9), ""}, "expected 8 more bytes"},
        {"kind 5", {std::string("fpmc\5\0\0\0", 8) + std::string(8, 0), ""}, "kind 5 is not supported"},
        {"kind 13", {std::string("fpmc\r\0\0\0", 8) + std::string(8, 0), ""}, "kind 13 is not supported"},
        {"kind 14", {std::string("fpmc\x0E\0\0\0", 8) + std::string(8, 0), ""}, "kind 14 is not supported"},
        {"no fork", {testCompression(4, "text").attribute, ""}, "expected a resource fork, found none"},
        {"large inline", changed(3, 8, huge, false), "bytes in an attribute"},
        {"large fork", changed(8, 8, huge, false), "expected a table of"},
        {"shorter", changed(9, 8, std::string("\1\0\0\0", 4), false), "expected a piece of 1 bytes"},
        {"no deflated data", changed(3, 16, "no zlib", false), "zlib"},
        {"resource beyond", changed(4, 0, all), "beyond the end"},
        {"count of 2^32 - 1", changed(4, 260, all), "expected a table of 3 entries, found 4294967295"},
        {"piece beyond", changed(4, 264, all), "beyond the end"},
        {"huge piece", changed(4, 268, all), "expected a piece of at most 131072 bytes"},
        {"short table", changed(8, 0, std::string("\4\0\0\0", 4)), "expected a table of 4 entries, found 1"},
        {"falling offsets", changed(12, 4, std::string("\0\0\0\0", 4)), "expected offsets that rise"},
        {"huge end", changed(10, 4, all), "expected a piece of at most 131072 bytes"}};
    for (const Case& each : cases) {
        EXPECT_NE(errorOf(each.file).find(each.problem), std::string::npos) << each.name << ": " << errorOf(each.file);
    }
}

TEST(CompressedFile, readsRealOnes) {
    CORVANE_REQUIRE_SAMPLES();
    const FileURL folder = *TestSupport::samples() / "dmg/decmpfs";
    struct Case {
        std::uint8_t kind;
        const char* stored;
        const char* plain;
    };
    for (const Case& each :
         {Case{3, "real_zlib_inline.payload", "real_zlib_inline.expected"},
          Case{3, "zlib_type3_stored.payload", "zlib_inline.expected"}, Case{4, "real_zlib_rsrc.rsrc", "zlib.expected"},
          Case{8, "lzvn.rsrc", "lzvn.expected"}, Case{8, "tahoe_type8.rsrc", "tahoe_type8.expected"},
          Case{9, "tahoe_type9.decmpfs", "tahoe_type9.expected"},
          Case{11, "real_lzfse_inline.payload", "real_zlib_inline.expected"},
          Case{12, "real_lzfse_rsrc.rsrc", "zlib.expected"}}) {
        SCOPED_TRACE(each.stored);
        const std::string expected = TestSupport::read(folder / each.plain);
        const std::string stored = TestSupport::read(folder / each.stored);
        TestCompression file;
        file.attribute = testCompression(each.kind, std::string(expected.size(), 'x')).attribute.substr(0, 16);
        if (each.kind % 2 == 0) {
            file.resourceFork = stored;
        } else if (stored.starts_with("fpmc")) {
            file.attribute = stored;
        } else {
            file.attribute += stored;
        }
        EXPECT_TRUE(plain(file) == expected);
    }
}

} // namespace
} // namespace corvane::CompressedFile
