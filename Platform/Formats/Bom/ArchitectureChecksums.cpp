#include "Platform/Formats/Bom/ArchitectureChecksums.hpp"

#include <algorithm>

namespace corvane::Bom {

ArchitectureChecksums::ArchitectureChecksums(const std::vector<MachO::Slice>& slices) {
    for (const MachO::Slice& slice : slices) pending_.push_back({slice, {}});
}

void ArchitectureChecksums::update(std::string_view bytes) {
    const std::uint64_t end = position_ + bytes.size();
    for (Pending& each : pending_) {
        const std::uint64_t from = std::max(each.slice.offset, position_);
        const std::uint64_t to = std::min(each.slice.offset + each.slice.size, end);
        if (from < to) each.checksum.update(bytes.substr(from - position_, to - from));
    }
    position_ = end;
}

std::vector<Architecture> ArchitectureChecksums::finish() {
    std::vector<Architecture> result;
    for (Pending& each : pending_) {
        result.push_back({.cpuType = each.slice.cpuType,
                          .cpuSubtype = each.slice.cpuSubtype,
                          .size = static_cast<std::uint32_t>(each.slice.size),
                          .checksum = each.checksum.finish()});
    }
    return result;
}

} // namespace corvane::Bom
