#pragma once

#include "Platform/Formats/Apfs/Record.hpp"
#include "Platform/Formats/RandomAccess.hpp"

#include <cstdint>
#include <string>
#include <string_view>

namespace corvane::Apfs {

enum class ObjectType : std::uint16_t {
    containerSuperblock = 1,
    treeRoot = 2,
    treeNode = 3,
    objectMap = 0xb,
    volumeSuperblock = 0xd,
};

/// The checksum that stands in front of an object and makes both its sums zero: Fletcher's over 32-bit words.
/// @param object a whole number of words, at least the 8 bytes that hold the checksum and at most 64 KiB
std::uint64_t checksum(std::string_view object);

/// A block that holds an object: its header is sound.
class Object {
  public:
    Object(std::string bytes, std::uint64_t place) : bytes_(std::move(bytes)), place_(place) {}

    Record record() const { return {bytes_, place_}; }
    std::uint64_t identifier() const { return record().u64(8); }
    std::uint64_t transaction() const { return record().u64(16); }
    ObjectType type() const { return static_cast<ObjectType>(record().u16(24)); }
    bool hasValidChecksum() const { return record().u64(0) == checksum(bytes_); }

  private:
    std::string bytes_;
    std::uint64_t place_;
};

/// Reads the blocks of a container. Threads may read side by side.
class ObjectReader {
  public:
    /// @param disk must outlive this
    ObjectReader(const RandomAccess& disk, std::uint32_t blockSize) : disk_(disk), blockSize_(blockSize) {}

    /// In bytes.
    std::uint32_t blockSize() const { return blockSize_; }
    /// Whole blocks of the disk.
    std::uint64_t blockCount() const { return disk_.size() / blockSize_; }
    /// @param address number of the block
    /// @throws FormatError when the checksum, the identifier or the type is another
    Object object(std::uint64_t address, std::uint64_t identifier, ObjectType type) const;
    /// A block that need not hold anything sound. @throws FormatError past the end
    Object unchecked(std::uint64_t address) const;

  private:
    const RandomAccess& disk_;
    std::uint32_t blockSize_;
};

} // namespace corvane::Apfs
