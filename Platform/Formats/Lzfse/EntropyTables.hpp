#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

/// Finite state entropy coding: a state of a table gives a symbol, and how many bits of the stream lead to the next
/// state. How often a symbol occurs is how many states it has.
namespace corvane::Lzfse {

/// Gives the bits of a stream from its end to its start, as they were written in reverse.
class BackwardBits {
  public:
    /// @param padding bits at the very end that do not belong to the stream, 0 to 7
    /// @throws FormatError
    BackwardBits(std::string_view stream, unsigned padding);

    /// The next bits as a number. @param count at most 32 @throws FormatError at the start of the stream
    std::uint32_t pull(unsigned count);

  private:
    void refill();

    std::string_view stream_;
    std::uint64_t held_ = 0;
    unsigned heldCount_ = 0;
};

/// Symbols that stand for ranges of numbers: the first number, and the bits that follow in the stream to choose one.
struct Range {
    std::uint32_t first = 0;
    std::uint8_t extraBits = 0;
};

/// The states of one kind of symbols.
class StateTable {
  public:
    /// @param frequencies states of each symbol
    /// @param stateCount a power of two
    /// @param ranges of the symbols; none when the symbols are the numbers themselves
    /// @throws FormatError when the symbols need more states
    StateTable(std::span<const std::uint16_t> frequencies, std::size_t stateCount, std::span<const Range> ranges = {});

    std::size_t size() const { return states_.size(); }

    /// The number of a state, which becomes the next one. @param state less than `size()`
    std::uint32_t decode(std::size_t& state, BackwardBits& bits) const;

  private:
    struct State {
        std::uint32_t first = 0;
        std::uint16_t next = 0;
        std::uint8_t stateBits = 0;
        std::uint8_t extraBits = 0;
    };
    std::vector<State> states_;
};

/// Symbols and states of the four tables of a block: lengths of literals, lengths of matches, distances, literals.
constexpr std::size_t lengthSymbols = 20;
constexpr std::size_t distanceSymbols = 64;
constexpr std::size_t literalSymbols = 256;
constexpr std::size_t lengthStates = 64;
constexpr std::size_t distanceStates = 256;
constexpr std::size_t literalStates = 1024;

constexpr std::size_t frequencyCount = 2 * lengthSymbols + distanceSymbols + literalSymbols;
/// In the order of the tables.
using Frequencies = std::array<std::uint16_t, frequencyCount>;

/// Reads frequencies as they are packed: short codes for the small ones. @throws FormatError
Frequencies unpackFrequencies(std::string_view packed);

struct BlockTables {
    /// @throws FormatError
    explicit BlockTables(const Frequencies& frequencies);
    StateTable literalLengths;
    StateTable matchLengths;
    StateTable distances;
    StateTable literals;
};

} // namespace corvane::Lzfse
