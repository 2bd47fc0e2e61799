#include "Platform/Formats/PackageSignature/HeapChecksums.hpp"

#include "Platform/Formats/ByteSource.hpp"
#include "Platform/Formats/FormatError.hpp"

#include <algorithm>
#include <atomic>
#include <future>
#include <thread>
#include <tuple>
#include <vector>

namespace corvane::HeapChecksums {
namespace {

constexpr std::size_t bufferSize = std::size_t{1} << 20;
constexpr std::size_t maximumThreads = 8;

/// A range of the heap and what it must hash to.
struct Item {
    Xar::HeapRange range;
    Xar::Checksum checksum;
    std::string path;

    auto key() const { return std::tie(range.offset, range.length, checksum.kind, checksum.value); }
};

std::vector<Item> itemsOf(const Xar::TableOfContents& contents, Missing missing) {
    std::vector<Item> items;
    contents.visit([&](const std::string& path, const Xar::Entry& entry) {
        if (!entry.data) return;
        if (entry.data->archivedChecksum) {
            items.push_back({entry.data->stored, *entry.data->archivedChecksum, path});
        } else if (missing == Missing::refused) {
            throw FormatError("xar: " + path + " has no checksum");
        }
    });
    return items;
}

/// Leaves one item for files that share their data, in the order of the heap.
void removeRepetitions(std::vector<Item>& items) {
    std::sort(items.begin(), items.end(), [](const Item& one, const Item& two) { return one.key() < two.key(); });
    const auto end = std::unique(items.begin(), items.end(),
                                 [](const Item& one, const Item& two) { return one.key() == two.key(); });
    items.erase(end, items.end());
}

/// Ranges that overlap in part come from no writer, and would let a small archive ask for endless work.
void refuseOverlaps(const std::vector<Item>& items) {
    const Item* before = nullptr;
    for (const Item& item : items) {
        if (item.range.length == 0) continue; // an empty file may name any place
        if (before != nullptr && item.range.offset < before->range.end() && item.range != before->range) {
            throw FormatError("xar: the data of " + before->path + " and " + item.path + " overlap");
        }
        before = &item;
    }
}

std::vector<Item> checkedItems(const Xar::TableOfContents& contents, Missing missing) {
    std::vector<Item> items = itemsOf(contents, missing);
    removeRepetitions(items);
    refuseOverlaps(items);
    return items;
}

[[noreturn]] void refuse(const std::string& path) { throw FormatError("xar: the checksum of " + path + " is wrong"); }

void verifyItem(const Xar::Archive& archive, const Item& item, std::vector<char>& buffer) {
    FileRange range(archive.descriptor(), archive.url(), archive.heapOffset() + item.range.offset, item.range.length);
    Hasher hasher(item.checksum.kind);
    while (const std::size_t count = range.read(buffer)) hasher.update({buffer.data(), count});
    if (hasher.finish() != item.checksum.value) refuse(item.path);
}

/// The work that threads share: each takes the next item until all are done or one has failed.
class Work {
  public:
    Work(const Xar::Archive& archive, const std::vector<Item>& items) : archive_(archive), items_(items) {}

    void run() try {
        std::vector<char> buffer(bufferSize);
        for (std::size_t index = next_++; index < items_.size(); index = next_++) {
            verifyItem(archive_, items_[index], buffer);
        }
    } catch (...) {
        next_ = items_.size();
        throw;
    }

  private:
    const Xar::Archive& archive_;
    const std::vector<Item>& items_;
    std::atomic<std::size_t> next_ = 0;
};

std::size_t usefulThreads(const std::vector<Item>& items) {
    const auto large =
        std::count_if(items.begin(), items.end(), [](const Item& item) { return item.range.length >= bufferSize; });
    const std::size_t cores = std::min<std::size_t>(std::thread::hardware_concurrency(), maximumThreads);
    return std::max<std::size_t>(1, std::min(cores, static_cast<std::size_t>(large)));
}

} // namespace

void verify(const Xar::Archive& archive, Missing missing) {
    const std::vector<Item> items = checkedItems(archive.contents(), missing);
    Work work(archive, items);
    std::vector<std::future<void>> others;
    for (std::size_t count = usefulThreads(items); count > 1; --count) {
        others.push_back(std::async(std::launch::async, [&] { work.run(); }));
    }
    work.run();
    for (std::future<void>& other : others) other.get();
}

Sequence::Sequence(const Xar::TableOfContents& contents, Missing missing) {
    for (Item& item : checkedItems(contents, missing)) {
        if (groups_.empty() || groups_.back().range != item.range) groups_.push_back({item.range, {}});
        const DigestKind kind = item.checksum.kind;
        groups_.back().checks.push_back({std::move(item.checksum), std::move(item.path), Hasher(kind)});
    }
    if (!groups_.empty()) position_ = groups_.front().range.offset;
}

void Sequence::update(std::uint64_t offset, std::string_view bytes) {
    const std::uint64_t end = offset + bytes.size();
    for (; next_ < groups_.size() && groups_[next_].range.offset < end; ++next_) {
        Group& group = groups_[next_];
        const std::uint64_t first = std::max(offset, group.range.offset);
        const std::uint64_t last = std::min(end, group.range.end());
        for (Check& check : group.checks) {
            if (first < last) check.hasher.update(bytes.substr(first - offset, last - first));
        }
        if (group.range.end() > end) break;
        compare(group);
    }
    position_ = end;
}

void Sequence::finish() {
    for (; next_ < groups_.size(); ++next_) {
        Group& group = groups_[next_];
        const bool isWhole = group.range.length == 0 || group.range.end() <= position_;
        if (!isWhole) throw FormatError("xar: the data of " + group.checks[0].path + " are missing");
        compare(group);
    }
}

void Sequence::compare(Group& group) {
    for (Check& check : group.checks) {
        if (check.hasher.finish() != check.expected.value) refuse(check.path);
    }
    group.checks.clear();
}

} // namespace corvane::HeapChecksums
