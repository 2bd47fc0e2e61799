#include "Platform/Formats/Apfs/Stream.hpp"

#include "Platform/Formats/FormatError.hpp"

#include <algorithm>

namespace corvane::Apfs {

void Stream::read(std::uint64_t offset, std::span<char> buffer) const {
    if (offset > size_ || buffer.size() > size_ - offset) {
        throw FormatError(formatName, offset,
                          "expected " + std::to_string(buffer.size()) + " bytes of a file, found the end at " +
                              std::to_string(size_));
    }
    std::ranges::fill(buffer, '\0');
    const std::uint64_t end = offset + buffer.size();
    const auto endOf = [](const Extent& extent) { return extent.offset + extent.size; };
    auto extent = std::ranges::upper_bound(extents_, offset, {}, endOf);
    for (; extent != extents_.end() && extent->offset < end; ++extent) {
        if (extent->place == 0) continue;
        const std::uint64_t from = std::max(offset, extent->offset);
        const std::uint64_t to = std::min(end, endOf(*extent));
        disk_.read(extent->place + (from - extent->offset), buffer.subspan(from - offset, to - from));
    }
}

} // namespace corvane::Apfs
