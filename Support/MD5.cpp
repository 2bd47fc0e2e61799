#include "Support/MD5.hpp"

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>

namespace corvane {
namespace {

constexpr std::size_t blockSize = 64;
using State = std::array<std::uint32_t, 4>;

/// 2^32 times the sines of 1 to 64 (radians), without sign and fraction.
std::array<std::uint32_t, 64> makeSines() {
    std::array<std::uint32_t, 64> sines;
    for (std::size_t i = 0; i < sines.size(); ++i) {
        sines[i] = static_cast<std::uint32_t>(std::floor(std::abs(std::sin(static_cast<double>(i + 1))) * 0x1p32));
    }
    return sines;
}

std::uint32_t littleEndian32(std::string_view bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = 4; i-- > 0;) value = value << 8 | static_cast<std::uint8_t>(bytes[at + i]);
    return value;
}

std::string littleEndian(std::uint64_t value, std::size_t count) {
    std::string bytes;
    for (std::size_t i = 0; i < count; ++i) bytes += static_cast<char>(value >> (8 * i) & 0xff);
    return bytes;
}

void addBlock(State& state, std::string_view block) {
    static const auto sines = makeSines();
    constexpr std::array<std::array<int, 4>, 4> rotations{
        {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}}};
    auto [a, b, c, d] = state;
    for (std::size_t i = 0; i < 64; ++i) {
        const std::size_t round = i / 16;
        const std::uint32_t mixed = round == 0   ? ((b & c) | (~b & d))
                                    : round == 1 ? ((d & b) | (~d & c))
                                    : round == 2 ? (b ^ c ^ d)
                                                 : (c ^ (b | ~d));
        constexpr std::array<std::size_t, 4> factors{1, 5, 3, 7}, offsets{0, 1, 5, 0};
        const std::size_t word = (factors[round] * i + offsets[round]) % 16;
        const std::uint32_t sum = a + mixed + sines[i] + littleEndian32(block, 4 * word);
        a = d;
        d = c;
        c = b;
        b += std::rotl(sum, rotations[round][i % 4]);
    }
    state = {state[0] + a, state[1] + b, state[2] + c, state[3] + d};
}

/// A one bit, zeros and the length in bits end the last block.
std::string padded(std::string_view bytes) {
    const std::string length = littleEndian(std::uint64_t{bytes.size()} * 8, 8);
    std::string text(bytes);
    text += '\x80';
    while (text.size() % blockSize != blockSize - length.size()) text += '\0';
    return text + length;
}

std::string hexadecimal(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        text += digits[static_cast<std::uint8_t>(byte) >> 4];
        text += digits[static_cast<std::uint8_t>(byte) & 15];
    }
    return text;
}

} // namespace

std::string hexadecimalMD5(std::string_view bytes) {
    State state{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
    const std::string text = padded(bytes);
    for (std::size_t at = 0; at < text.size(); at += blockSize) addBlock(state, std::string_view(text).substr(at));
    std::string digest;
    for (const std::uint32_t part : state) digest += littleEndian(part, 4);
    return hexadecimal(digest);
}

} // namespace corvane
