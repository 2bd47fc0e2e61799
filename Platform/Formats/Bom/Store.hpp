#pragma once

#include "Platform/Formats/BigEndian.hpp"
#include "Platform/Formats/ByteCursor.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::Bom {

/// Reads the container: blocks of bytes under numbers, and variables, which are names for some of them. Other files
/// than Boms are such containers, too. Does not own the bytes.
class Store {
  public:
    /// @throws FormatError
    explicit Store(std::string_view bytes);

    /// How many numbers there are. Every block lies within the file, and this is bounded by its size.
    std::size_t blockCount() const { return table_.size() / slotSize; }
    /// The bytes of a block, and what errors say of their place. @throws FormatError when there is no such block
    ByteCursor block(std::uint32_t number) const;
    const std::map<std::string, std::uint32_t>& variables() const { return variables_; }

  private:
    static constexpr std::size_t slotSize = 8;

    std::string_view area(std::uint64_t offset, std::uint64_t length, std::string_view what) const;
    void readTable(std::string_view bytes, std::uint64_t offset);
    void readVariables(std::string_view bytes, std::uint64_t offset);

    std::string_view bytes_;
    std::string_view table_;
    std::map<std::string, std::uint32_t> variables_;
};

/// Builds a container. Blocks follow each other in the order in which they get their bytes.
class StoreBuilder {
  public:
    struct Variable {
        std::string_view name;
        std::uint32_t block;
    };

    /// Appends a block under the next number; the first is 1.
    std::uint32_t add(std::string_view bytes);
    /// Takes the next number for a block whose bytes come later, through `set`.
    std::uint32_t reserve();
    /// Gives a reserved number its bytes. Called once for each.
    void set(std::uint32_t number, std::string_view bytes);
    std::string_view block(std::uint32_t number) const;

    /// Hands out the file from front to back. @throws FormatError when its offsets do not fit 32 bits
    void write(const std::vector<Variable>& variables, const std::function<void(std::string_view)>& sink) const;

  private:
    struct Place {
        std::uint32_t offset = 0;
        std::uint32_t length = 0;
    };
    /// The bytes from an offset on. Chunks do not grow, so there is no copying and no spare room.
    struct Chunk {
        std::uint64_t offset;
        std::string bytes;
    };

    std::vector<Place> places_{Place()};
    std::vector<Chunk> chunks_;
    std::uint64_t end_ = 512;
};

} // namespace corvane::Bom
