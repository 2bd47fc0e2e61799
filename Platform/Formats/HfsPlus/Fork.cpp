#include "Platform/Formats/HfsPlus/Fork.hpp"

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/HfsPlus/Tree.hpp"

#include <algorithm>
#include <numeric>
#include <string>

namespace corvane::HfsPlus {
namespace {

std::uint64_t blockCount(const std::vector<Extent>& extents) {
    return std::accumulate(extents.begin(), extents.end(), std::uint64_t{0},
                           [](std::uint64_t sum, const Extent& each) { return sum + each.count; });
}

class ForkAccess : public RandomAccess {
  public:
    ForkAccess(const RandomAccess& disk, std::uint32_t blockSize, Fork fork)
        : disk_(disk), blockSize_(blockSize), fork_(std::move(fork)) {
        std::uint64_t end = 0;
        for (const Extent& each : fork_.extents) ends_.push_back(end += std::uint64_t{each.count} * blockSize_);
    }

    std::uint64_t size() const override { return fork_.size; }

    void read(std::uint64_t offset, std::span<char> buffer) const override {
        if (offset > fork_.size || buffer.size() > fork_.size - offset) {
            throw FormatError("hfsplus fork", offset,
                              "expected " + std::to_string(buffer.size()) + " bytes, found the end at " +
                                  std::to_string(fork_.size));
        }
        auto index = static_cast<std::size_t>(std::upper_bound(ends_.begin(), ends_.end(), offset) - ends_.begin());
        while (!buffer.empty()) {
            const std::uint64_t left = ends_[index] - offset;
            const Extent& extent = fork_.extents[index++];
            const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(left, buffer.size()));
            disk_.read((std::uint64_t{extent.start} + extent.count) * blockSize_ - left, buffer.first(count));
            buffer = buffer.subspan(count);
            offset += count;
        }
    }

  private:
    const RandomAccess& disk_;
    std::uint64_t blockSize_;
    Fork fork_;
    /// Offsets in the fork at which its extents end.
    std::vector<std::uint64_t> ends_;
};

} // namespace

std::uint64_t appendExtents(std::vector<Extent>& extents, const ExtentRecord& record, std::uint32_t limit) {
    std::uint64_t appended = 0;
    for (const Extent& each : record) {
        if (each.count == 0) break;
        if (each.start > limit || each.count > limit - each.start) {
            throw FormatError("hfsplus: expected blocks below " + std::to_string(limit) + ", found " +
                              std::to_string(each.count) + " from " + std::to_string(each.start) + " on");
        }
        extents.push_back(each);
        appended += each.count;
    }
    return appended;
}

ForkTable::ForkTable(const RandomAccess& disk, const VolumeHeader& header)
    : disk_(disk), blockSize_(header.blockSize), volumeBlocks_(header.blocks) {
    const auto file = open(find(header.extents, Numbers::extents, ForkKind::data));
    forEachRecord(*file, "hfsplus extents", [&](ByteCursor key, ByteCursor value) {
        const std::uint8_t kind = key.u8();
        key.skip(1);
        const std::uint32_t number = key.u32BigEndian();
        if (!more_.emplace(std::tuple(number, kind, key.u32BigEndian()), readExtents(value)).second) {
            key.fail("found extents of file " + std::to_string(number) + " twice");
        }
    });
}

Fork ForkTable::find(const ForkRecord& record, std::uint32_t file, ForkKind kind) const {
    std::vector<Extent> extents;
    std::uint64_t found = appendExtents(extents, record.extents, volumeBlocks_);
    while (found < record.blocks) {
        const auto more = more_.find({file, static_cast<std::uint8_t>(kind), static_cast<std::uint32_t>(found)});
        if (more == more_.end() || more->second.front().count == 0) break;
        found += appendExtents(extents, more->second, volumeBlocks_);
    }
    if (found != record.blocks) {
        throw FormatError("hfsplus: expected " + std::to_string(record.blocks) + " blocks of file " +
                          std::to_string(file) + ", found " + std::to_string(found));
    }
    return checked(record.size, std::move(extents));
}

Fork ForkTable::checked(std::uint64_t size, std::vector<Extent> extents) const {
    const std::uint64_t found = blockCount(extents);
    if (found > volumeBlocks_) {
        throw FormatError("hfsplus: expected a fork of at most " + std::to_string(volumeBlocks_) +
                          " blocks, found one of " + std::to_string(found));
    }
    if (size > found * blockSize_) {
        throw FormatError("hfsplus: expected a fork of at most " + std::to_string(found * blockSize_) +
                          " bytes in its blocks, found one of " + std::to_string(size));
    }
    return {size, std::move(extents)};
}

std::unique_ptr<RandomAccess> ForkTable::open(Fork fork) const {
    return std::make_unique<ForkAccess>(disk_, blockSize_, std::move(fork));
}

} // namespace corvane::HfsPlus
