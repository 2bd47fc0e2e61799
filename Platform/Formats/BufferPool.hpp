#pragma once

#include "Platform/Formats/ByteSource.hpp"

#include <mutex>
#include <utility>
#include <vector>

namespace corvane {

/// Buffers of `sourceBufferSize` bytes that several threads fill and empty in turn. Those that were given back are
/// used again first: a heap of one's own for each thread would keep what another thread has freed.
class BufferPool {
  public:
    std::vector<char> take() {
        {
            const std::lock_guard lock(mutex_);
            ++inUse_;
            if (!buffers_.empty()) {
                std::vector<char> buffer = std::move(buffers_.back());
                buffers_.pop_back();
                return buffer;
            }
        }
        return std::vector<char>(sourceBufferSize);
    }

    void giveBack(std::vector<char> buffer) {
        const std::lock_guard lock(mutex_);
        --inUse_;
        buffers_.push_back(std::move(buffer));
    }

    /// Of the buffers that were taken and not given back.
    std::size_t bytesInUse() const {
        const std::lock_guard lock(mutex_);
        return inUse_ * sourceBufferSize;
    }

  private:
    mutable std::mutex mutex_;
    std::size_t inUse_ = 0;
    std::vector<std::vector<char>> buffers_;
};

} // namespace corvane
