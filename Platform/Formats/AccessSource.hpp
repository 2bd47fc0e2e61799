#pragma once

#include "Platform/Formats/ByteSource.hpp"
#include "Platform/Formats/RandomAccess.hpp"

#include <memory>

namespace corvane {

/// Bytes that can be read anywhere, from front to back.
class AccessSource : public ByteSource {
  public:
    explicit AccessSource(std::unique_ptr<RandomAccess> bytes) : bytes_(std::move(bytes)) {}

    std::size_t read(std::span<char> buffer) override;

  private:
    std::unique_ptr<RandomAccess> bytes_;
    std::uint64_t position_ = 0;
};

} // namespace corvane
