#include "Platform/Formats/ByteCursor.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Lzfse/EntropyTables.hpp"
#include "Platform/Formats/Lzfse/Lzfse.hpp"
#include "Tests/TestSupport.hpp"

namespace corvane::Lzfse {
namespace {

using namespace std::string_literals;

std::string little(std::uint64_t number, std::size_t width = 4) {
    std::string bytes;
    for (; width > 0; --width, number >>= 8) bytes += static_cast<char>(number);
    return bytes;
}

std::string stored(const std::string& content) { return "bvx-" + little(content.size()) + content; }
std::string lzvn(const std::string& stream, std::size_t size) {
    return "bvxn" + little(size) + little(stream.size()) + stream;
}

const std::string letters = "abcdefghijklmnopqrst";
/// 20 literals.
const std::string someLetters = "\xe0\x04" + letters;
/// Four literals, a match of four at the distance four, and the end mark.
const std::string twice = "\xe4" + "abcd\x08\x04\x06\0\0\0\0\0\0\0"s;

TEST(Lzvn, followsEveryOperation) {
    const struct {
        const char* what;
        std::string stream;
        std::string plain;
    } cases[]{
        {"literals, a short distance, the end", twice, "abcdabcd"},
        {"fillers, long literals", "\x0e\x16" + someLetters, letters},
        {"a long match at the same distance", "\xe1z\x08\x01\xf0\xff"s, std::string(1 + 4 + 16 + 255, 'z')},
        {"a short match at the same distance", "\xe2xy\x00\x02\xf3"s, "xyxyxyxy"},
        {"a literal and the same distance", "\xe2xy\x00\x02\x46q"s, "xyxyxqxqx"},
        {"a medium distance of 18, a length of 2 x 4 + 1 + 3", someLetters + "\xaa\x49\x00Z"s,
         letters + "Zdefghijklmno"},
        {"a large distance", someLetters + "\x8f\x14\x00YZ"s, letters + "YZcdef"},
        {"bytes behind the end mark", twice + "junk", "abcdabcd"},
    };
    for (const auto& item : cases) {
        SCOPED_TRACE(item.what);
        EXPECT_EQ(decodeLzvn(item.stream, item.plain.size()), item.plain);
    }
}

TEST(Lzfse, joinsBlocks) {
    // The match of the second block reaches into the first.
    const std::string across = lzvn("\xe1-\x08\x05\x06"s, 5);
    EXPECT_EQ(decode(stored("hello") + across + stored("") + lzvn(twice, 8) + "bvx$behind", 18), "hello-elloabcdabcd");
    EXPECT_EQ(decode("bvx$", 0), "");
}

TEST(Lzfse, refusesDamage) {
    const std::string zeros(770, '\0');
    const struct {
        const char* what;
        std::string stream;
        std::size_t size;
    } cases[]{
        {"nothing", "", 0},
        {"no end", stored("abc"), 3},
        {"an unknown block", "bvx3" + zeros, 1},
        {"fewer bytes", stored("abc") + "bvx$", 4},
        {"more bytes", stored("abc") + "bvx$", 2},
        {"a stored block that is cut", "bvx-" + little(9) + "abc", 9},
        {"an LZVN block that is cut", lzvn(twice, 8).substr(0, 16) + "bvx$", 8},
        {"a block size that is not true", lzvn(twice, 7) + "bvx$", 8},
        {"a match before the start", lzvn("\xe1-\x08\x02\x06"s, 5) + "bvx$", 5},
        {"a match without a distance", lzvn("\xf3\x06"s, 3) + "bvx$", 3},
        {"an undefined operation", lzvn("\xd1"s, 3) + "bvx$", 3},
        {"a packed header that is too short", "bvx2" + zeros, 0},
        {"too many literals", "bvx1" + little(0) + little(0) + little(1U << 30) + zeros, 0},
    };
    for (const auto& item : cases) {
        SCOPED_TRACE(item.what);
        EXPECT_THROW(decode(item.stream, item.size), FormatError);
    }
}

std::string sample(const std::string& name) {
    return TestSupport::read(*TestSupport::samples() / "dmg/decmpfs" / name);
}

/// The piece of a resource fork that begins with the offsets of its pieces.
std::string piece(const std::string& fork, std::size_t number) {
    ByteCursor offsets(fork, "fork");
    offsets.skip(4 * number);
    const std::uint32_t start = offsets.u32LittleEndian();
    return fork.substr(start, offsets.u32LittleEndian() - start);
}

std::string plainPiece(const std::string& plain, std::size_t number) { return plain.substr(number << 16, 1 << 16); }

/// A block with packed numbers written with plain ones.
std::string withPlainHeader(const std::string& packed) {
    ByteCursor input(packed, "block");
    input.expect("bvx2");
    const std::uint32_t size = input.u32LittleEndian();
    const std::uint64_t literals = input.u64LittleEndian();
    const std::uint64_t matches = input.u64LittleEndian();
    const std::uint64_t states = input.u64LittleEndian();
    const auto field = [](std::uint64_t bits, unsigned at, unsigned width) {
        return bits >> at & ((1ULL << width) - 1);
    };
    const std::uint64_t literalBytes = field(literals, 20, 20);
    const std::uint64_t matchBytes = field(matches, 40, 20);
    std::string block = "bvx1" + little(size) + little(literalBytes + matchBytes) + little(field(literals, 0, 20)) +
                        little(field(literals, 40, 20)) + little(literalBytes) + little(matchBytes) +
                        little(field(literals, 60, 3) - 7);
    for (unsigned at = 0; at < 40; at += 10) block += little(field(matches, at, 10), 2);
    block += little(field(matches, 60, 3) - 7);
    for (unsigned at = 32; at < 62; at += 10) block += little(field(states, at, 10), 2);
    for (const std::uint16_t count : unpackFrequencies(input.bytes(field(states, 0, 32) - 32)))
        block += little(count, 2);
    return block + packed.substr(packed.size() - input.remaining());
}

TEST(LzfseSamples, areDecoded) {
    CORVANE_REQUIRE_SAMPLES();
    const std::string plain = sample("zlib.expected");
    const std::string inlined = sample("real_zlib_inline.expected");
    EXPECT_EQ(decode(sample("real_lzfse_inline.payload"), inlined.size()), inlined);
    const std::string script = sample("tahoe_type8.expected");
    EXPECT_EQ(decodeLzvn(piece(sample("tahoe_type8.rsrc"), 0), script.size()), script);
    const std::string fork = sample("real_lzfse_rsrc.rsrc");
    const std::string lzvnFork = sample("lzvn.rsrc");
    const std::string lzvnPlain = sample("lzvn.expected");
    for (std::size_t number = 0; number < 2; ++number) {
        SCOPED_TRACE(number);
        const std::string expected = plainPiece(lzvnPlain, number);
        EXPECT_TRUE(decodeLzvn(piece(lzvnFork, number), expected.size()) == expected);
    }
    for (std::size_t number = 0; number < 3; ++number) {
        SCOPED_TRACE(number);
        const std::string coded = piece(fork, number);
        const std::string expected = plainPiece(plain, number);
        EXPECT_TRUE(decode(coded, expected.size()) == expected);
        EXPECT_THROW(decode(coded, expected.size() - 1), FormatError);
        EXPECT_THROW(decode(coded.substr(0, coded.size() / 2), expected.size()), FormatError);
    }
    // The last piece is one coded block.
    EXPECT_TRUE(decode(withPlainHeader(piece(fork, 2)), plainPiece(plain, 2).size()) == plainPiece(plain, 2));
}

} // namespace
} // namespace corvane::Lzfse
