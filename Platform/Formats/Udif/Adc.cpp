#include "Platform/Formats/Udif/Adc.hpp"

#include "Platform/Formats/ByteCursor.hpp"
#include "Platform/Formats/Lzfse/Output.hpp"

#include <cstdint>

namespace corvane::Udif {
namespace {

constexpr std::uint8_t literalFlag = 0x80;
constexpr std::uint8_t longFlag = 0x40;

void decodeOperation(ByteCursor& input, Lzfse::Output& output) {
    const std::uint8_t code = input.u8();
    if ((code & literalFlag) != 0) {
        output.append(input.bytes((code & 0x7FU) + 1));
    } else if ((code & longFlag) != 0) {
        output.repeat(input.u16BigEndian() + std::size_t{1}, (code & 0x3FU) + 4);
    } else {
        const std::size_t distance = (code & 3U) << 8 | input.u8();
        output.repeat(distance + 1, (code >> 2) + 3);
    }
}

} // namespace

std::string decodeAdc(std::string_view stream, std::size_t size) {
    ByteCursor input(stream, "adc");
    Lzfse::Output output(size);
    while (input.remaining() > 0) decodeOperation(input, output);
    return std::move(output).finish();
}

} // namespace corvane::Udif
