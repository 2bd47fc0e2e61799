#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Pbzx/Reader.hpp"
#include "Platform/Formats/Pbzx/Writer.hpp"
#include "Tests/TestSupport.hpp"

namespace corvane::Pbzx {
namespace {

std::string bigEndian(std::uint64_t number) {
    std::string bytes(8, '\0');
    for (int at = 7; at >= 0; --at, number >>= 8) bytes[static_cast<std::size_t>(at)] = static_cast<char>(number);
    return bytes;
}

std::string header(std::uint64_t blockSize) { return "pbzx" + bigEndian(blockSize); }

std::string chunk(std::uint64_t decodedSize, const std::string& stored) {
    return bigEndian(decodedSize) + bigEndian(stored.size()) + stored;
}

std::string xz(const std::string& content, const std::vector<std::string>& options = {}) {
    std::vector<std::string> command{"xz", "-c"};
    command.insert(command.end(), options.begin(), options.end());
    return TestSupport::run(command, {.input = content}).output;
}

std::string text(std::size_t size) {
    std::string lines;
    for (std::size_t line = 0; lines.size() < size; ++line) lines += std::to_string(line * line) + "\n";
    lines.resize(size);
    return lines;
}

/// What is read before the end or the error, and the error.
struct Outcome {
    std::string content;
    std::string error;
};

Outcome decoded(const std::string& bytes, unsigned threads = 2) {
    Outcome outcome;
    std::vector<char> buffer(70001);
    try {
        MemorySource source(bytes);
        Reader reader(source, threads);
        while (const std::size_t count = reader.read(buffer)) outcome.content.append(buffer.data(), count);
    } catch (const FormatError& error) {
        outcome.error = error.what();
    }
    return outcome;
}

TEST(PbzxReader, readsWhatTheWriterAndXzMake) {
    const std::string content = text(600000);
    std::string written;
    Writer writer([&](std::string_view piece) { written += piece; });
    writer.write(content);
    writer.finish();
    EXPECT_TRUE(decoded(written).content == content);
    EXPECT_EQ(decoded(header(5)).content, "");

    // Other writers: any check, several xz blocks, filters before LZMA2, larger dictionaries, chunks in any order.
    const std::vector<std::vector<std::string>> settings{
        {},     {"--check=sha256"},      {"--block-size=100000"}, {"--x86", "--lzma2=preset=1"},
        {"-9"}, {"--delta=dist=4", "-0"}};
    std::string bytes = header(content.size());
    std::string expected;
    for (const std::vector<std::string>& options : settings) {
        bytes += chunk(content.size(), xz(content, options)) + chunk(7, "1234567");
        expected += content + "1234567";
    }
    for (const unsigned threads : {1U, 2U, 5U}) {
        const Outcome outcome = decoded(bytes, threads);
        EXPECT_TRUE(outcome.content == expected);
        EXPECT_EQ(outcome.error, "");
    }
}

TEST(PbzxReader, saysWhatIsDamagedAfterWhatIsSound) {
    const std::string content = text(5000);
    const std::string stored = xz(content);
    const std::string sound = header(5000) + chunk(5000, stored);
    std::string flipped = stored;
    flipped[stored.size() / 2] = static_cast<char>(flipped[stored.size() / 2] ^ 1);
    const std::string second = std::to_string(sound.size());
    struct Case {
        std::string bytes;
        std::string error;
        std::string before;
    };
    const std::vector<Case> cases{
        {"", "pbzx: offset 0: expected 4 more bytes, found 0", ""},
        {"pbzy" + sound.substr(4), "pbzx: offset 0: expected", ""},
        {"pbzx1234567", "pbzx: offset 4: expected 8 more bytes, found 7", ""},
        {header(0), "pbzx: offset 4: expected a block size of 1 to 67108864 bytes, found 0", ""},
        {header(67108865), "found 67108865", ""},
        {sound + "garbage", "pbzx: offset " + second + ": expected 8 more bytes, found 7", content},
        {sound + std::string(16, '\0'), "pbzx: offset " + second + ": expected a chunk's decoded length of 1 to 5000",
         content},
        {sound + chunk(5001, stored), "length of 1 to 5000, found 5001", content},
        {sound + bigEndian(5000) + bigEndian(~0ULL), "expected a chunk's stored length of 1 to ", content},
        {sound + chunk(4, std::string(5000, 'x')), "found 5000", content},
        {sound + bigEndian(5000) + bigEndian(0), "found 0", content},
        {sound.substr(0, sound.size() - 1),
         "pbzx: chunk at offset 12: expected 1 more bytes, found the end of the data", ""},
        {sound + chunk(4000, stored), "pbzx: chunk at offset " + second + ": expected the end of the block, found more",
         content},
        {header(5001) + chunk(5001, stored), "expected 1 more bytes of the block, found its end", ""},
        {sound + chunk(5000, stored + stored),
         "chunk at offset " + second + ": xz: offset " + std::to_string(stored.size()) +
             ": expected the end of the data",
         content},
        {sound + chunk(5000, stored.substr(0, stored.size() - 4)),
         "expected more compressed bytes, found the end of the data", content},
        {sound + chunk(5000, flipped), "expected LZMA data, found something else", content},
        {sound + chunk(5000, xz(content, {"--format=lzma"})), "expected LZMA data, found something else", content},
        {sound + chunk(5000, xz(content, {"--lzma2=dict=512MiB"})), "expected a dictionary of at most 64 MiB",
         content}};
    for (const Case& each : cases) {
        for (const unsigned threads : {1U, 3U}) {
            const Outcome outcome = decoded(each.bytes, threads);
            EXPECT_NE(outcome.error.find(each.error), std::string::npos) << each.error << "\n" << outcome.error;
            EXPECT_TRUE(outcome.content.starts_with(each.before)) << each.error;
        }
    }
}

TEST(PbzxReader, canBeGivenUpWhileItExpands) {
    const std::string content(std::size_t{1} << 24, 'u');
    const std::string one = chunk(content.size(), xz(content));
    const std::string bytes = header(content.size()) + one + one + one;
    MemorySource source(bytes);
    Reader reader(source, 3);
    char first = 0;
    EXPECT_EQ(reader.read({&first, 1}), 1U);
    EXPECT_EQ(first, 'u');
}

} // namespace
} // namespace corvane::Pbzx
