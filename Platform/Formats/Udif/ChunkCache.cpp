#include "Platform/Formats/Udif/ChunkCache.hpp"

#include <algorithm>

namespace corvane::Udif {

std::shared_ptr<ChunkCache::Slot> ChunkCache::slot(std::size_t chunk, std::uint64_t size) {
    const std::lock_guard lock(mutex_);
    const auto known =
        std::find_if(slots_.begin(), slots_.end(), [&](const auto& slot) { return slot->chunk == chunk; });
    if (known != slots_.end()) {
        slots_.splice(slots_.begin(), slots_, known);
        return slots_.front();
    }
    slots_.push_front(std::make_shared<Slot>(chunk, size));
    held_ += size;
    for (; held_ > capacity_ && slots_.size() > 1; slots_.pop_back()) held_ -= slots_.back()->size;
    return slots_.front();
}

std::shared_ptr<const std::string> ChunkCache::find(std::size_t chunk, std::uint64_t size,
                                                    const std::function<std::string()>& decode) {
    const std::shared_ptr<Slot> found = slot(chunk, size);
    const std::lock_guard lock(found->mutex);
    if (!found->bytes) found->bytes = std::make_shared<const std::string>(decode());
    return found->bytes;
}

} // namespace corvane::Udif
