#include "Platform/Formats/Lzfse/Lzfse.hpp"

#include "Platform/Formats/ByteCursor.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Lzfse/EntropyTables.hpp"
#include "Platform/Formats/Lzfse/Lzvn.hpp"
#include "Platform/Formats/Lzfse/Output.hpp"

#include <array>

namespace corvane::Lzfse {
namespace {

/// Most literals of one block, and most pairs of literals and a match.
constexpr std::uint32_t literalLimit = 40'000;
constexpr std::uint32_t matchLimit = 10'000;
constexpr std::uint32_t packedHeaderSize = 32;

/// An entropy coded block: first the literals, then the lengths and distances, each a stream of bits read backwards.
struct CodedBlock {
    std::uint32_t plainSize = 0;
    std::uint32_t literalCount = 0;
    std::uint32_t matchCount = 0;
    std::uint32_t literalBytes = 0;
    std::uint32_t matchBytes = 0;
    unsigned literalPadding = 0;
    unsigned matchPadding = 0;
    std::array<std::size_t, 4> literalStates{};
    std::size_t literalLengthState = 0;
    std::size_t matchLengthState = 0;
    std::size_t distanceState = 0;
    Frequencies frequencies{};
};

/// The header counts the bits at a stream's end as a number from -7 to 0.
unsigned padding(ByteCursor& input) {
    const auto bits = static_cast<std::int32_t>(input.u32LittleEndian());
    if (bits > 0 || bits < -7) input.fail("expected -7 to 0 bits, found " + std::to_string(bits));
    return static_cast<unsigned>(-bits);
}

CodedBlock readPlainHeader(ByteCursor& input) {
    CodedBlock block;
    block.plainSize = input.u32LittleEndian();
    input.skip(4); // the sum of the two sizes below
    block.literalCount = input.u32LittleEndian();
    block.matchCount = input.u32LittleEndian();
    block.literalBytes = input.u32LittleEndian();
    block.matchBytes = input.u32LittleEndian();
    block.literalPadding = padding(input);
    for (std::size_t& state : block.literalStates) state = input.u16LittleEndian();
    block.matchPadding = padding(input);
    block.literalLengthState = input.u16LittleEndian();
    block.matchLengthState = input.u16LittleEndian();
    block.distanceState = input.u16LittleEndian();
    for (std::uint16_t& frequency : block.frequencies) frequency = input.u16LittleEndian();
    return block;
}

/// Takes fields off a number, the lowest bits first.
class Fields {
  public:
    explicit Fields(std::uint64_t bits) : bits_(bits) {}
    std::uint32_t next(unsigned width) {
        const auto value = static_cast<std::uint32_t>(bits_ & ((std::uint64_t{1} << width) - 1));
        bits_ >>= width;
        return value;
    }

  private:
    std::uint64_t bits_;
};

CodedBlock readPackedHeader(ByteCursor& input) {
    CodedBlock block;
    block.plainSize = input.u32LittleEndian();
    Fields literals(input.u64LittleEndian());
    block.literalCount = literals.next(20);
    block.literalBytes = literals.next(20);
    block.matchCount = literals.next(20);
    block.literalPadding = 7 - literals.next(3);
    Fields matches(input.u64LittleEndian());
    for (std::size_t& state : block.literalStates) state = matches.next(10);
    block.matchBytes = matches.next(20);
    block.matchPadding = 7 - matches.next(3);
    Fields states(input.u64LittleEndian());
    const std::uint32_t headerSize = states.next(32);
    block.literalLengthState = states.next(10);
    block.matchLengthState = states.next(10);
    block.distanceState = states.next(10);
    if (headerSize < packedHeaderSize) {
        input.fail("expected a header of at least 32 bytes, found " + std::to_string(headerSize));
    }
    block.frequencies = unpackFrequencies(input.bytes(headerSize - packedHeaderSize));
    return block;
}

void requireLimits(const CodedBlock& block, const BlockTables& tables, const ByteCursor& input) {
    bool isSound = block.literalCount <= literalLimit && block.literalCount % block.literalStates.size() == 0 &&
                   block.matchCount <= matchLimit && block.literalLengthState < tables.literalLengths.size() &&
                   block.matchLengthState < tables.matchLengths.size() && block.distanceState < tables.distances.size();
    for (const std::size_t state : block.literalStates) isSound = isSound && state < tables.literals.size();
    if (!isSound) input.fail("expected counts and states within their limits, found others");
}

/// Four states take turns.
std::string decodeLiterals(const CodedBlock& block, const StateTable& table, std::string_view stream) {
    BackwardBits bits(stream, block.literalPadding);
    std::array<std::size_t, 4> states = block.literalStates;
    std::string literals(block.literalCount, '\0');
    for (std::size_t index = 0; index < literals.size(); ++index) {
        literals[index] = static_cast<char>(table.decode(states[index % states.size()], bits));
    }
    return literals;
}

void decodeMatches(CodedBlock& block, const BlockTables& tables, std::string_view stream, ByteCursor literals,
                   Output& output) {
    BackwardBits bits(stream, block.matchPadding);
    std::uint32_t distance = 0;
    for (std::uint32_t index = 0; index < block.matchCount; ++index) {
        const std::uint32_t literalLength = tables.literalLengths.decode(block.literalLengthState, bits);
        const std::uint32_t matchLength = tables.matchLengths.decode(block.matchLengthState, bits);
        const std::uint32_t ownDistance = tables.distances.decode(block.distanceState, bits);
        // Zero repeats the distance before.
        if (ownDistance != 0) distance = ownDistance;
        output.append(literals.bytes(literalLength));
        output.repeat(distance, matchLength);
    }
}

void decodeCoded(CodedBlock block, ByteCursor& input, Output& output) {
    const BlockTables tables(block.frequencies);
    requireLimits(block, tables, input);
    const std::string literals = decodeLiterals(block, tables.literals, input.bytes(block.literalBytes));
    const std::size_t start = output.position();
    decodeMatches(block, tables, input.bytes(block.matchBytes), ByteCursor(literals, "lzfse literals"), output);
    if (output.position() - start != block.plainSize) {
        input.fail("expected a block of " + std::to_string(block.plainSize) + " bytes, found " +
                   std::to_string(output.position() - start));
    }
}

void decodeLzvnBlock(ByteCursor& input, Output& output) {
    const std::uint32_t plainSize = input.u32LittleEndian();
    const std::uint32_t storedSize = input.u32LittleEndian();
    decodeLzvn(input.bytes(storedSize), plainSize, output);
}

/// False for the end mark.
bool decodeBlock(ByteCursor& input, Output& output) {
    const std::string_view magic = input.bytes(4);
    if (magic == "bvx$") return false;
    if (magic == "bvx-") {
        const std::uint32_t size = input.u32LittleEndian();
        output.append(input.bytes(size));
    } else if (magic == "bvxn") {
        decodeLzvnBlock(input, output);
    } else if (magic == "bvx1") {
        decodeCoded(readPlainHeader(input), input, output);
    } else if (magic == "bvx2") {
        decodeCoded(readPackedHeader(input), input, output);
    } else {
        input.fail("expected the start of a block, found something else");
    }
    return true;
}

} // namespace

std::string decode(std::string_view stream, std::size_t size) {
    Output output(size);
    ByteCursor input(stream, "lzfse");
    while (decodeBlock(input, output)) {
    }
    return std::move(output).finish();
}

} // namespace corvane::Lzfse
