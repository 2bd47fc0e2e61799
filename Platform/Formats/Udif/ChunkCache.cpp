#include "Platform/Formats/Udif/ChunkCache.hpp"

#include <algorithm>
#include <system_error>

namespace corvane::Udif {
namespace {

constexpr unsigned workerLimit = 16;

} // namespace

const std::shared_ptr<ChunkCache::Slot>& ChunkCache::insert(std::size_t chunk, std::uint64_t size) {
    slots_.push_front(std::make_shared<Slot>(chunk, size));
    byChunk_[chunk] = slots_.begin();
    held_ += size;
    for (; held_ > capacity_ && slots_.size() > 1; slots_.pop_back()) {
        held_ -= slots_.back()->size;
        byChunk_.erase(slots_.back()->chunk);
    }
    return slots_.front();
}

std::shared_ptr<const std::string> ChunkCache::bytes(Slot& slot) {
    const std::lock_guard lock(slot.mutex);
    if (!slot.bytes) slot.bytes = std::make_shared<const std::string>(decode_(slot.chunk));
    return slot.bytes;
}

std::shared_ptr<const std::string> ChunkCache::find(std::size_t chunk, std::uint64_t size) {
    std::shared_ptr<Slot> slot;
    {
        const std::lock_guard lock(mutex_);
        const auto known = byChunk_.find(chunk);
        if (known != byChunk_.end()) slots_.splice(slots_.begin(), slots_, known->second);
        slot = known != byChunk_.end() ? slots_.front() : insert(chunk, size);
    }
    return bytes(*slot);
}

void ChunkCache::prepare(std::size_t chunk, std::uint64_t size) {
    const std::lock_guard lock(mutex_);
    if (byChunk_.contains(chunk)) return;
    startWorkers();
    prepared_.push_back(insert(chunk, size));
    isPrepared_.notify_one();
}

/// Without threads there is no background, and all is decoded where it is read.
void ChunkCache::startWorkers() try {
    const unsigned count = std::clamp(std::thread::hardware_concurrency(), 1U, workerLimit);
    while (workers_.size() < count) {
        workers_.emplace_back([this](const std::stop_token& stop) { work(stop); });
    }
} catch (const std::system_error&) {
}

void ChunkCache::work(const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    while (isPrepared_.wait(lock, stop, [this] { return !prepared_.empty(); })) {
        const std::shared_ptr<Slot> slot = prepared_.front().lock();
        prepared_.pop_front();
        lock.unlock();
        try {
            if (slot) bytes(*slot);
        } catch (...) {
            // Whoever needs the chunk decodes it again, and gets the error; the slot is still empty.
        }
        lock.lock();
    }
}

} // namespace corvane::Udif
