#include "Platform/Formats/PosixChecksum.hpp"

#include <array>
#include <cstddef>

namespace corvane {
namespace {

/// Bytes per step. A single table would wait for the step before at every byte.
constexpr std::size_t sliceCount = 16;

using Table = std::array<std::uint32_t, 256>;

/// `tables[k][b]` is what byte b contributes when k more bytes of the step follow it.
constexpr std::array<Table, sliceCount> makeTables() {
    constexpr std::uint32_t polynomial = 0x04C11DB7;
    std::array<Table, sliceCount> tables{};
    for (std::uint32_t byte = 0; byte < 256; ++byte) {
        std::uint32_t value = byte << 24;
        for (int bit = 0; bit < 8; ++bit) value = (value << 1) ^ ((value >> 31) * polynomial);
        tables[0][byte] = value;
    }
    for (std::size_t slice = 1; slice < sliceCount; ++slice) {
        for (std::size_t byte = 0; byte < 256; ++byte) {
            const std::uint32_t before = tables[slice - 1][byte];
            tables[slice][byte] = (before << 8) ^ tables[0][before >> 24];
        }
    }
    return tables;
}

constexpr std::array<Table, sliceCount> tables = makeTables();

std::uint32_t appended(std::uint32_t value, unsigned char byte) {
    return (value << 8) ^ tables[0][(value >> 24) ^ byte];
}

std::uint32_t appendedSlice(std::uint32_t value, const unsigned char* bytes) {
    std::uint32_t result = 0;
    for (std::size_t at = 0; at < sliceCount; ++at) {
        const std::uint32_t mixed = at < 4 ? (value >> (24 - 8 * at)) & 0xFF : 0;
        result ^= tables[sliceCount - 1 - at][bytes[at] ^ mixed];
    }
    return result;
}

} // namespace

void PosixChecksum::update(std::string_view bytes) {
    const auto* next = reinterpret_cast<const unsigned char*>(bytes.data());
    const unsigned char* const end = next + bytes.size();
    std::uint32_t value = value_;
    for (; static_cast<std::size_t>(end - next) >= sliceCount; next += sliceCount) value = appendedSlice(value, next);
    for (; next != end; ++next) value = appended(value, *next);
    value_ = value;
    length_ += bytes.size();
}

std::uint32_t PosixChecksum::finish() {
    for (; length_ != 0; length_ >>= 8) value_ = appended(value_, static_cast<unsigned char>(length_ & 0xFF));
    return ~value_;
}

std::uint32_t posixChecksum(std::string_view bytes) {
    PosixChecksum checksum;
    checksum.update(bytes);
    return checksum.finish();
}

} // namespace corvane
