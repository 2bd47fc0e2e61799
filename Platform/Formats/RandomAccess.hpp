#pragma once

#include "Platform/Formats/ByteSource.hpp"
#include "Support/FileURL.hpp"
#include "Support/UniqueDescriptor.hpp"

#include <cstdint>
#include <span>

namespace corvane {

/// Bytes that are read anywhere and any number of times, as those of a disk. Threads may read side by side.
class RandomAccess {
  public:
    RandomAccess() = default;
    RandomAccess(const RandomAccess&) = delete;
    RandomAccess& operator=(const RandomAccess&) = delete;
    virtual ~RandomAccess() = default;

    virtual std::uint64_t size() const = 0;
    /// Fills the buffer with the bytes from an offset on.
    /// @throws FormatError when they pass the end or are damaged, FileError
    virtual void read(std::uint64_t offset, std::span<char> buffer) const = 0;
};

/// A file as it is.
class FileAccess : public RandomAccess {
  public:
    /// @throws FileError
    explicit FileAccess(const FileURL& file);
    std::uint64_t size() const override { return size_; }
    void read(std::uint64_t offset, std::span<char> buffer) const override;

  private:
    FileURL name_;
    UniqueDescriptor descriptor_;
    std::uint64_t size_ = 0;
};

/// A part of other bytes.
class PartAccess : public RandomAccess {
  public:
    /// @param whole must outlive this
    /// @throws FormatError when the part passes its end
    PartAccess(const RandomAccess& whole, std::uint64_t offset, std::uint64_t size);
    std::uint64_t size() const override { return size_; }
    void read(std::uint64_t offset, std::span<char> buffer) const override;

  private:
    const RandomAccess& whole_;
    std::uint64_t offset_;
    std::uint64_t size_;
};

} // namespace corvane
