#pragma once

#include "Platform/Formats/Apfs/FileTree.hpp"
#include "Platform/Formats/RandomAccess.hpp"

#include <cstdint>
#include <span>

namespace corvane::Apfs {

/// The bytes of a stream, gathered from its extents. What no extent covers is zeros.
class Stream : public RandomAccess {
  public:
    /// @param disk must outlive this, and so must the extents
    Stream(const RandomAccess& disk, std::span<const Extent> extents, std::uint64_t size)
        : disk_(disk), extents_(extents), size_(size) {}

    std::uint64_t size() const override { return size_; }
    void read(std::uint64_t offset, std::span<char> buffer) const override;

  private:
    const RandomAccess& disk_;
    std::span<const Extent> extents_;
    std::uint64_t size_;
};

} // namespace corvane::Apfs
