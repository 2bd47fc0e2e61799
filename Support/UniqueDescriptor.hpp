#pragma once

#include <unistd.h>

#include <utility>

namespace corvane {

/// Owns one file descriptor and closes it.
class UniqueDescriptor {
  public:
    UniqueDescriptor() = default;
    explicit UniqueDescriptor(int descriptor) : descriptor_(descriptor) {}
    UniqueDescriptor(UniqueDescriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    UniqueDescriptor& operator=(UniqueDescriptor&& other) noexcept {
        if (this != &other) {
            reset();
            descriptor_ = std::exchange(other.descriptor_, -1);
        }
        return *this;
    }
    UniqueDescriptor(const UniqueDescriptor&) = delete;
    UniqueDescriptor& operator=(const UniqueDescriptor&) = delete;
    ~UniqueDescriptor() { reset(); }

    int get() const { return descriptor_; }
    explicit operator bool() const { return descriptor_ >= 0; }
    /// Gives the descriptor up to the caller.
    int release() { return std::exchange(descriptor_, -1); }
    void reset() {
        if (descriptor_ >= 0) ::close(descriptor_);
        descriptor_ = -1;
    }

  private:
    int descriptor_ = -1;
};

} // namespace corvane
