#include "Platform/Formats/ByteSource.hpp"

#include "Platform/Formats/FormatError.hpp"
#include "Support/FileError.hpp"

#include <unistd.h>

#include <algorithm>
#include <vector>

namespace corvane {

std::size_t FileRange::read(std::span<char> buffer) {
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), left_));
    if (wanted == 0) return 0;
    ssize_t count = 0;
    do {
        count = ::pread(descriptor_, buffer.data(), wanted, static_cast<off_t>(offset_));
    } while (count < 0 && errno == EINTR);
    if (count < 0) throw FileError("Cannot read", name_, lastSystemError());
    if (count == 0) throw FormatError(name_.string() + " ends at offset " + std::to_string(offset_) + " too early");
    offset_ += static_cast<std::uint64_t>(count);
    left_ -= static_cast<std::uint64_t>(count);
    return static_cast<std::size_t>(count);
}

std::size_t MemorySource::read(std::span<char> buffer) {
    const std::size_t count = std::min(buffer.size(), rest_.size());
    std::copy_n(rest_.data(), count, buffer.data());
    rest_.remove_prefix(count);
    return count;
}

PeekingSource::PeekingSource(ByteSource& inner, std::size_t count) : inner_(inner), front_(count, '\0') {
    front_.resize(readFully(inner_, front_));
}

std::size_t PeekingSource::read(std::span<char> buffer) {
    if (position_ == front_.size()) return inner_.read(buffer);
    const std::size_t count = front_.copy(buffer.data(), buffer.size(), position_);
    position_ += count;
    return count;
}

std::size_t readFully(ByteSource& source, std::span<char> buffer) {
    std::size_t filled = 0;
    while (filled < buffer.size()) {
        const std::size_t count = source.read(buffer.subspan(filled));
        if (count == 0) break;
        filled += count;
    }
    return filled;
}

std::string readAll(ByteSource& source, std::size_t limit, std::string_view format) {
    std::string bytes;
    std::vector<char> buffer(std::size_t{1} << 16);
    while (const std::size_t count = source.read(buffer)) {
        bytes.append(buffer.data(), count);
        if (bytes.size() > limit) throw FormatError(format, limit, "expected the end, found more bytes");
    }
    return bytes;
}

} // namespace corvane
