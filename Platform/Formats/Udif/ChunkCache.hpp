#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace corvane::Udif {

/// Keeps the decoded chunks that were read last, as many as fit. Threads that want the same chunk wait for the one that
/// decodes it; those that want others decode them side by side.
class ChunkCache {
  public:
    /// @param capacity bytes that are kept; the chunks in use come on top
    explicit ChunkCache(std::uint64_t capacity) : capacity_(capacity) {}

    /// The decoded bytes of a chunk. What `decode` throws passes through, and the next caller tries again.
    std::shared_ptr<const std::string> find(std::size_t chunk, std::uint64_t size,
                                            const std::function<std::string()>& decode);

  private:
    struct Slot {
        Slot(std::size_t number, std::uint64_t byteCount) : chunk(number), size(byteCount) {}
        const std::size_t chunk;
        const std::uint64_t size;
        std::mutex mutex;
        std::shared_ptr<const std::string> bytes;
    };
    std::shared_ptr<Slot> slot(std::size_t chunk, std::uint64_t size);

    const std::uint64_t capacity_;
    std::mutex mutex_;
    /// The one used last stands first.
    std::list<std::shared_ptr<Slot>> slots_;
    std::uint64_t held_ = 0;
};

} // namespace corvane::Udif
