#include "Platform/Formats/Lzfse/Lzvn.hpp"

#include "Platform/Formats/ByteCursor.hpp"
#include "Platform/Formats/Lzfse/Lzfse.hpp"

#include <cstdint>

namespace corvane::Lzfse {
namespace {

/// Shortest match of the operations that have literals as well.
constexpr std::size_t shortestMatch = 3;
/// Added to lengths that fill a byte of their own: the shorter ones stand in the operation.
constexpr std::size_t longLength = 16;

/// Literals that stand behind the operation, then a match.
struct Operation {
    std::size_t literals = 0;
    std::size_t match = 0;
    std::size_t distance = 0;
    bool isEnd = false;
};

/// Reads the operations. A match without a distance of its own has that of the match before it.
class OperationReader {
  public:
    explicit OperationReader(ByteCursor& input) : input_(input) {}

    Operation next() {
        const std::uint8_t code = input_.u8();
        const unsigned family = code >> 4;
        if (family == 0xE) return {longOrShort(code), 0, 0};
        if (family == 0xF) return {0, longOrShort(code), distance_};
        if (family == 0xA || family == 0xB) return medium(code);
        if (family == 0x7 || family == 0xD) fail(code);
        return (code & 7U) == 6 ? withoutDistance(code) : withDistance(code);
    }

  private:
    std::size_t longOrShort(std::uint8_t code) {
        const std::size_t length = code & 0xFU;
        return length != 0 ? length : input_.u8() + longLength;
    }

    /// 101LLMMM, then two bytes of which the lowest two bits lengthen the match.
    Operation medium(std::uint8_t code) {
        const std::size_t rest = input_.u16LittleEndian();
        distance_ = rest >> 2;
        const std::size_t match = ((code & 7U) << 2 | (rest & 3U)) + shortestMatch;
        return {code >> 3 & 3U, match, distance_};
    }

    /// LLMMM110; where there would be no literals stand the end mark and fillers.
    Operation withoutDistance(std::uint8_t code) {
        if (code == 0x06) return {.isEnd = true};
        if (code == 0x0E || code == 0x16) return {};
        if (code < 0x40) fail(code);
        return {static_cast<std::size_t>(code >> 6), matchLength(code), distance_};
    }

    /// LLMMM111 and a distance of two bytes, or LLMMMDDD and the lower byte of a distance.
    Operation withDistance(std::uint8_t code) {
        const std::size_t upper = code & 7U;
        distance_ = upper == 7 ? input_.u16LittleEndian() : upper << 8 | input_.u8();
        return {static_cast<std::size_t>(code >> 6), matchLength(code), distance_};
    }

    static std::size_t matchLength(std::uint8_t code) { return (code >> 3 & 7U) + shortestMatch; }

    [[noreturn]] void fail(std::uint8_t code) const {
        input_.fail("expected an operation, found the byte " + std::to_string(code));
    }

    ByteCursor& input_;
    std::size_t distance_ = 0;
};

} // namespace

void decodeLzvn(std::string_view stream, std::size_t size, Output& output) {
    ByteCursor input(stream, "lzvn");
    OperationReader operations(input);
    const std::size_t start = output.position();
    while (output.position() - start < size) {
        const Operation operation = operations.next();
        if (operation.isEnd) break;
        output.append(input.bytes(operation.literals));
        output.repeat(operation.distance, operation.match);
    }
    const std::size_t found = output.position() - start;
    if (found != size) input.fail("expected " + std::to_string(size) + " plain bytes, found " + std::to_string(found));
}

std::string decodeLzvn(std::string_view stream, std::size_t size) {
    Output output(size);
    decodeLzvn(stream, size, output);
    return std::move(output).finish();
}

} // namespace corvane::Lzfse
