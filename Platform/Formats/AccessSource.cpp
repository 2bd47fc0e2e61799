#include "Platform/Formats/AccessSource.hpp"

#include <algorithm>

namespace corvane {

std::size_t AccessSource::read(std::span<char> buffer) {
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), bytes_->size() - position_));
    if (count != 0) bytes_->read(position_, buffer.first(count));
    position_ += count;
    return count;
}

} // namespace corvane
