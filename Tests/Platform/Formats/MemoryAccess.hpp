#pragma once

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/RandomAccess.hpp"

#include <string>

namespace corvane::TestSupport {

/// A disk in memory.
class MemoryAccess : public RandomAccess {
  public:
    explicit MemoryAccess(std::string bytes) : bytes_(std::move(bytes)) {}
    std::uint64_t size() const override { return bytes_.size(); }
    void read(std::uint64_t offset, std::span<char> buffer) const override {
        if (offset > bytes_.size() || buffer.size() > bytes_.size() - offset) throw FormatError("beyond the end");
        bytes_.copy(buffer.data(), buffer.size(), offset);
    }

  private:
    std::string bytes_;
};

} // namespace corvane::TestSupport
