#include "Platform/Formats/Pbzx/Chunk.hpp"

#include "Platform/Formats/FormatError.hpp"

#include <algorithm>
#include <string>
#include <utility>

namespace corvane::Pbzx {

StoredBytes::StoredBytes(ByteSource& source, std::uint64_t length, BufferPool& pool) : pool_(pool), left_(length) {
    for (std::uint64_t missing = length; missing != 0;) {
        std::vector<char> buffer = pool_.take();
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(missing, buffer.size()));
        const std::size_t count = readFully(source, std::span(buffer).first(wanted));
        missing -= count;
        buffers_.push_back(std::move(buffer));
        if (count != wanted) {
            throw FormatError("expected " + std::to_string(missing) + " more bytes, found the end of the data");
        }
    }
}

StoredBytes::~StoredBytes() {
    for (std::vector<char>& each : buffers_) pool_.giveBack(std::move(each));
}

std::size_t StoredBytes::read(std::span<char> buffer) {
    if (left_ == 0) return 0;
    const std::span<const char> rest = std::span(buffers_.front()).subspan(position_);
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>({buffer.size(), rest.size(), left_}));
    std::copy_n(rest.data(), count, buffer.data());
    position_ += count;
    left_ -= count;
    if (left_ == 0 || count == rest.size()) {
        pool_.giveBack(std::move(buffers_.front()));
        buffers_.pop_front();
        position_ = 0;
    }
    return count;
}

std::size_t ExpandedBytes::read(std::span<char> buffer) {
    const std::size_t count = xz_.read(buffer);
    if (count > left_) throw FormatError("expected the end of the block, found more bytes");
    left_ -= count;
    if (count == 0 && left_ != 0) {
        throw FormatError("expected " + std::to_string(left_) + " more bytes of the block, found its end");
    }
    return count;
}

Chunk::Chunk(ByteSource& encoded, std::uint64_t decodedSize, std::uint64_t storedSize, BufferPool& pool,
             std::size_t depth)
    : stored_(encoded, storedSize, pool) {
    if (storedSize == decodedSize) return;
    expanded_.emplace(stored_, decodedSize);
    ahead_.emplace(*expanded_, pool, depth);
}

} // namespace corvane::Pbzx
