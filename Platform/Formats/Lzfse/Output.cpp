#include "Platform/Formats/Lzfse/Output.hpp"

#include "Platform/Formats/FormatError.hpp"

#include <algorithm>
#include <cstring>

namespace corvane::Lzfse {

void Output::requireRoom(std::size_t count) const {
    if (count <= room()) return;
    throw FormatError("lzfse: expected " + std::to_string(bytes_.size()) + " plain bytes, found more");
}

void Output::append(std::string_view literals) {
    requireRoom(literals.size());
    if (!literals.empty()) std::memcpy(bytes_.data() + position_, literals.data(), literals.size());
    position_ += literals.size();
}

void Output::repeat(std::size_t distance, std::size_t length) {
    requireRoom(length);
    if (length == 0) return;
    if (distance == 0 || distance > position_) {
        throw FormatError("lzfse: expected a match within the " + std::to_string(position_) +
                          " bytes before it, found the distance " + std::to_string(distance));
    }
    // What has been repeated is itself a longer run to repeat, so short distances double.
    const char* const from = bytes_.data() + position_ - distance;
    char* to = bytes_.data() + position_;
    position_ += length;
    while (length > 0) {
        const std::size_t piece = std::min(length, static_cast<std::size_t>(to - from));
        std::memcpy(to, from, piece);
        to += piece;
        length -= piece;
    }
}

std::string Output::finish() && {
    if (room() == 0) return std::move(bytes_);
    throw FormatError("lzfse: expected " + std::to_string(bytes_.size()) + " plain bytes, found " +
                      std::to_string(position_));
}

} // namespace corvane::Lzfse
