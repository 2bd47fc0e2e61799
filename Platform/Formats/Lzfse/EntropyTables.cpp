#include "Platform/Formats/Lzfse/EntropyTables.hpp"

#include "Platform/Formats/FormatError.hpp"

#include <bit>
#include <string>

namespace corvane::Lzfse {
namespace {

/// The ranges follow one another without a gap.
template <std::size_t Count>
constexpr std::array<Range, Count> consecutive(const std::array<std::uint8_t, Count>& extraBits) {
    std::array<Range, Count> ranges{};
    std::uint32_t first = 0;
    for (std::size_t symbol = 0; symbol < Count; ++symbol) {
        ranges[symbol] = {first, extraBits[symbol]};
        first += std::uint32_t{1} << extraBits[symbol];
    }
    return ranges;
}

constexpr std::array<std::uint8_t, distanceSymbols> distanceBits() {
    std::array<std::uint8_t, distanceSymbols> bits{};
    for (std::size_t symbol = 0; symbol < distanceSymbols; ++symbol)
        bits[symbol] = static_cast<std::uint8_t>(symbol / 4);
    return bits;
}

constexpr auto literalLengthRanges =
    consecutive<lengthSymbols>({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 3, 5, 8});
constexpr auto matchLengthRanges =
    consecutive<lengthSymbols>({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3, 5, 8, 11});
constexpr auto distanceRanges = consecutive<distanceSymbols>(distanceBits());

/// Bits from the front, the lowest of a byte first; zeros behind the end, which `finish` then finds.
class ForwardBits {
  public:
    explicit ForwardBits(std::string_view bytes) : bytes_(bytes) {}

    std::uint32_t peek(unsigned count) const {
        std::uint32_t value = 0;
        for (unsigned bit = 0; bit < count; ++bit) value |= bitAt(position_ + bit) << bit;
        return value;
    }
    std::uint32_t pull(unsigned count) {
        const std::uint32_t value = peek(count);
        position_ += count;
        return value;
    }
    void finish() const {
        if ((position_ + 7) / 8 == bytes_.size()) return;
        throw FormatError("lzfse: expected frequencies of " + std::to_string(bytes_.size()) + " bytes, found " +
                          std::to_string((position_ + 7) / 8));
    }

  private:
    std::uint32_t bitAt(std::size_t position) const {
        if (position / 8 >= bytes_.size()) return 0;
        const std::uint32_t byte = static_cast<std::uint8_t>(bytes_[position / 8]);
        return byte >> (position % 8) & 1U;
    }

    std::string_view bytes_;
    std::size_t position_ = 0;
};

/// 0 and 1 take two bits, 2 and 3 take three, 4 to 7 five, 8 to 23 eight, and all others fourteen.
std::uint16_t unpackFrequency(ForwardBits& bits) {
    const std::uint32_t code = bits.peek(4);
    std::uint32_t value = 0;
    if ((code & 1U) == 0) {
        value = bits.pull(2) >> 1;
    } else if ((code & 2U) == 0) {
        value = 2 + (bits.pull(3) >> 2);
    } else if ((code & 4U) == 0) {
        value = 4 + (bits.pull(5) >> 3);
    } else if ((code & 8U) == 0) {
        value = 8 + (bits.pull(8) >> 4);
    } else {
        value = 24 + (bits.pull(14) >> 4);
    }
    return static_cast<std::uint16_t>(value);
}

} // namespace

BackwardBits::BackwardBits(std::string_view stream, unsigned padding) : stream_(stream) {
    if (padding == 0) return;
    refill();
    if (heldCount_ < padding) throw FormatError("lzfse: expected a stream of bits, found none");
    if (pull(padding) != 0) throw FormatError("lzfse: expected zero bits at the end of a stream, found others");
}

void BackwardBits::refill() {
    while (heldCount_ < 56 && !stream_.empty()) {
        held_ = held_ << 8 | static_cast<std::uint8_t>(stream_.back());
        stream_.remove_suffix(1);
        heldCount_ += 8;
    }
}

std::uint32_t BackwardBits::pull(unsigned count) {
    if (heldCount_ < count) refill();
    if (heldCount_ < count) throw FormatError("lzfse: expected more bits, found the start of their stream");
    heldCount_ -= count;
    const std::uint64_t mask = (std::uint64_t{1} << count) - 1;
    return static_cast<std::uint32_t>(held_ >> heldCount_ & mask);
}

StateTable::StateTable(std::span<const std::uint16_t> frequencies, std::size_t stateCount,
                       std::span<const Range> ranges)
    : states_(stateCount) {
    std::size_t place = 0;
    for (std::size_t symbol = 0; symbol < frequencies.size(); ++symbol) {
        const std::size_t frequency = frequencies[symbol];
        if (frequency == 0) continue;
        if (frequency > stateCount - place) {
            throw FormatError("lzfse: expected frequencies of at most " + std::to_string(stateCount) + ", found more");
        }
        // The states of the symbol share all states evenly: the first ones cover 2^bits of them each, the others half.
        const auto bits = static_cast<unsigned>(std::bit_width(stateCount) - std::bit_width(frequency));
        const std::size_t wide = (2 * stateCount >> bits) - frequency;
        const Range range = ranges.empty() ? Range{static_cast<std::uint32_t>(symbol), 0} : ranges[symbol];
        for (std::size_t index = 0; index < frequency; ++index) {
            const bool isWide = index < wide;
            const std::size_t next = isWide ? ((frequency + index) << bits) - stateCount : (index - wide) << (bits - 1);
            states_[place++] = {range.first, static_cast<std::uint16_t>(next),
                                static_cast<std::uint8_t>(isWide ? bits : bits - 1), range.extraBits};
        }
    }
}

std::uint32_t StateTable::decode(std::size_t& state, BackwardBits& bits) const {
    const State& current = states_[state];
    state = current.next + bits.pull(current.stateBits);
    return current.first + bits.pull(current.extraBits);
}

Frequencies unpackFrequencies(std::string_view packed) {
    Frequencies frequencies{};
    if (packed.empty()) return frequencies;
    ForwardBits bits(packed);
    for (std::uint16_t& frequency : frequencies) frequency = unpackFrequency(bits);
    bits.finish();
    return frequencies;
}

BlockTables::BlockTables(const Frequencies& frequencies)
    : literalLengths(std::span(frequencies).first(lengthSymbols), lengthStates, literalLengthRanges),
      matchLengths(std::span(frequencies).subspan(lengthSymbols, lengthSymbols), lengthStates, matchLengthRanges),
      distances(std::span(frequencies).subspan(2 * lengthSymbols, distanceSymbols), distanceStates, distanceRanges),
      literals(std::span(frequencies).last(literalSymbols), literalStates) {}

} // namespace corvane::Lzfse
