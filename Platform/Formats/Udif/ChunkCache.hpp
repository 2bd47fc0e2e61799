#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

namespace corvane::Udif {

/// Keeps the decoded chunks that were read last, as many as fit. Threads that want the same chunk wait for the one that
/// decodes it; those that want others decode them side by side. Chunks that are wanted soon can be decoded in the
/// background, on all cores.
class ChunkCache {
  public:
    using Decode = std::function<std::string(std::size_t chunk)>;

    /// @param capacity bytes that are kept; the chunks in use come on top
    /// @param decode is called by many threads; to be valid until the cache is destroyed
    ChunkCache(std::uint64_t capacity, Decode decode) : capacity_(capacity), decode_(std::move(decode)) {}

    /// The decoded bytes of a chunk. What `decode` throws passes through, and the next caller tries again.
    std::shared_ptr<const std::string> find(std::size_t chunk, std::uint64_t size);
    /// Has a chunk decoded in the background. What `decode` throws there is thrown by `find`, which tries again.
    void prepare(std::size_t chunk, std::uint64_t size);

  private:
    struct Slot {
        Slot(std::size_t number, std::uint64_t byteCount) : chunk(number), size(byteCount) {}
        const std::size_t chunk;
        const std::uint64_t size;
        std::mutex mutex;
        std::shared_ptr<const std::string> bytes;
    };
    using Slots = std::list<std::shared_ptr<Slot>>;

    std::shared_ptr<const std::string> bytes(Slot& slot);
    /// With the mutex held.
    const std::shared_ptr<Slot>& insert(std::size_t chunk, std::uint64_t size);
    void startWorkers();
    void work(const std::stop_token& stop);

    const std::uint64_t capacity_;
    const Decode decode_;
    std::mutex mutex_;
    /// The one used last stands first.
    Slots slots_;
    std::unordered_map<std::size_t, Slots::iterator> byChunk_;
    std::uint64_t held_ = 0;
    /// Chunks to be decoded in the background, unless they are dropped before.
    std::deque<std::weak_ptr<Slot>> prepared_;
    std::condition_variable_any isPrepared_;
    /// Ended first: they use all that is above.
    std::vector<std::jthread> workers_;
};

} // namespace corvane::Udif
