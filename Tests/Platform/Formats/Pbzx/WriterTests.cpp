#include "Platform/Formats/ByteCursor.hpp"
#include "Platform/Formats/Pbzx/Writer.hpp"
#include "Tests/TestSupport.hpp"

#include <random>
#include <stdexcept>

namespace corvane::Pbzx {
namespace {

constexpr std::size_t blockSize = std::size_t{1} << 24;

std::string incompressible(std::size_t size) {
    std::mt19937 numbers(7);
    std::string bytes;
    while (bytes.size() < size) bytes += static_cast<char>(numbers() & 0xFFU);
    return bytes;
}

std::string encoded(std::string_view content, unsigned threads = 0, std::size_t pieceSize = 1000003) {
    std::string bytes;
    Writer writer([&](std::string_view piece) { bytes += piece; }, threads);
    for (; !content.empty(); content.remove_prefix(std::min(pieceSize, content.size()))) {
        writer.write(content.substr(0, pieceSize));
    }
    writer.finish();
    return bytes;
}

struct Chunk {
    std::uint64_t decodedSize;
    std::string stored;
};

std::vector<Chunk> chunks(const std::string& bytes) {
    ByteCursor cursor(bytes, "pbzx");
    cursor.expect("pbzx");
    EXPECT_EQ(cursor.u64BigEndian(), blockSize);
    std::vector<Chunk> result;
    while (cursor.remaining() != 0) {
        const std::uint64_t decodedSize = cursor.u64BigEndian();
        result.push_back({decodedSize, std::string(cursor.bytes(cursor.u64BigEndian()))});
    }
    return result;
}

TEST(PbzxWriter, makesChunksThatXzDecodes) {
    struct Case {
        const char* name;
        std::string content;
        std::vector<std::uint64_t> sizes;
        std::vector<bool> raw;
    };
    const std::string text = incompressible(3000) + std::string(blockSize - 3000, 't');
    const std::vector<Case> cases{
        {"empty", "", {}, {}},
        {"one byte", "x", {1}, {true}},
        {"short", std::string(500, 's'), {500}, {false}},
        {"a full block", text, {blockSize}, {false}},
        {"one byte more", text + "x", {blockSize, 1}, {false, true}},
        {"incompressible", incompressible(100000), {100000}, {true}},
        {"three", text + text + text.substr(0, 5000), {blockSize, blockSize, 5000}, {false, false, false}}};
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        std::string decoded;
        std::vector<std::uint64_t> sizes;
        for (const Chunk& chunk : chunks(encoded(each.content))) {
            const bool isRaw = chunk.decodedSize == chunk.stored.size();
            EXPECT_EQ(isRaw, each.raw.at(sizes.size()));
            sizes.push_back(chunk.decodedSize);
            decoded += isRaw ? chunk.stored : TestSupport::run({"xz", "-dc"}, {.input = chunk.stored}).output;
        }
        EXPECT_EQ(sizes, each.sizes);
        EXPECT_TRUE(decoded == each.content);
    }
}

TEST(PbzxWriter, writesTheXzHeadersOfThePackageTools) {
    // 22528 bytes that become some 12000, as in a payload of the package tools.
    const std::string content = incompressible(12000) + std::string(10528, 'c');
    const std::string stored = chunks(encoded(content)).at(0).stored;
    EXPECT_EQ(stored.substr(0, 14), std::string("\xfd\x37\x7a\x58\x5a\0\0\0\xff\x12\xd9\x41\x03\xc0", 14));
    EXPECT_EQ(stored.substr(16, 8), std::string("\x80\xb0\x01\x21\x01\x16\0\0", 8));
    EXPECT_EQ(stored.substr(stored.size() - 4), std::string("\0\0YZ", 4));
}

TEST(PbzxWriter, givesTheSameBytesWithAnyNumberOfThreads) {
    std::string content;
    for (int block = 0; block < 5; ++block) {
        content += block % 2 == 0 ? incompressible(40000) : "";
        content.resize((static_cast<std::size_t>(block) + 1) * blockSize, static_cast<char>('a' + block));
    }
    content += "the rest";
    const std::string one = encoded(content, 1);
    EXPECT_TRUE(one == encoded(content, 2));
    EXPECT_TRUE(one == encoded(content, 5, content.size()));
}

TEST(PbzxWriter, passesOnWhatTheSinkThrowsAndCanBeGivenUp) {
    const std::string content(blockSize * 3, 'g');
    Writer failing([](std::string_view) { throw std::runtime_error("the disk is full"); }, 2);
    EXPECT_THROW(
        {
            failing.write(content);
            failing.finish();
        },
        std::runtime_error);
    Writer unfinished([](std::string_view) {}, 3);
    unfinished.write(content);
}

} // namespace
} // namespace corvane::Pbzx
