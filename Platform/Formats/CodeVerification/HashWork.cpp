#include "Platform/Formats/CodeVerification/HashWork.hpp"

#include "Platform/Formats/ByteSource.hpp"
#include "Support/UniqueDescriptor.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <span>

namespace corvane::CodeSignature {
namespace {

/// Bytes between a file and its digests: what the nearer caches hold.
constexpr std::size_t pieceSize = std::size_t{1} << 18;

/// Compares the digests of one kind, page by page, while the bytes pass by.
class PageComparison {
  public:
    /// @param pageSize in bytes; 0 for one page of any length
    PageComparison(const ExpectedDigests& expected, std::uint64_t pageSize)
        : rest_(expected.digests), size_(expected.size), pageSize_(pageSize), hasher_(expected.kind) {}

    void update(std::string_view bytes) {
        while (!bytes.empty()) {
            const std::string_view part = pageSize_ == 0 ? bytes : bytes.substr(0, pageSize_ - inPage_);
            hasher_.update(part);
            inPage_ += part.size();
            if (inPage_ == pageSize_) endPage();
            bytes.remove_prefix(part.size());
        }
    }

    /// After the last byte: whether every page had its digest and no digest is left.
    bool finish() {
        if (inPage_ > 0 || pageSize_ == 0) endPage();
        return isGood_ && rest_.empty();
    }

  private:
    void endPage() {
        const std::string found = hasher_.finish();
        hasher_.restart();
        isGood_ = isGood_ && rest_.size() >= size_ && found.compare(0, size_, rest_, 0, size_) == 0;
        rest_.remove_prefix(std::min(size_, rest_.size()));
        inPage_ = 0;
    }

    std::string_view rest_;
    std::size_t size_;
    std::uint64_t pageSize_;
    std::uint64_t inPage_ = 0;
    bool isGood_ = true;
    Hasher hasher_;
};

bool hasExpectedEnd(int descriptor, const HashJob& job) {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) return false;
    const auto size = static_cast<std::uint64_t>(status.st_size);
    return job.isWholeFile ? size == job.offset + job.length : size >= job.offset + job.length;
}

bool isAsExpected(const HashJob& job, std::span<char> buffer) try {
    // A pipe in the place of a file must not hold up the opening.
    const UniqueDescriptor file(::open(job.file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file || !hasExpectedEnd(file.get(), job)) return false;
    std::vector<PageComparison> comparisons;
    for (const ExpectedDigests& expected : job.expected) comparisons.emplace_back(expected, job.pageSize);
    FileRange source(file.get(), job.file, job.offset, job.length);
    while (const std::size_t count = source.read(buffer)) {
        for (PageComparison& comparison : comparisons) comparison.update({buffer.data(), count});
    }
    return std::all_of(comparisons.begin(), comparisons.end(), [](PageComparison& each) { return each.finish(); });
} catch (const std::exception&) {
    return false;
}

} // namespace

HashWork::HashWork() {
    const unsigned cores = std::max(1U, std::thread::hardware_concurrency());
    for (unsigned index = 1; index < cores; ++index) threads_.emplace_back([this] { work(); });
}

HashWork::~HashWork() {
    const std::lock_guard lock(mutex_);
    waiting_ = {};
    isComplete_ = true;
    changed_.notify_all();
}

std::size_t HashWork::add(HashJob job) {
    const std::lock_guard lock(mutex_);
    waiting_.push(&jobs_.emplace_back(Entry{std::move(job)}));
    changed_.notify_one();
    return jobs_.size() - 1;
}

void HashWork::finish() {
    {
        const std::lock_guard lock(mutex_);
        isComplete_ = true;
        changed_.notify_all();
    }
    work();
    threads_.clear();
}

void HashWork::work() {
    std::vector<char> buffer(pieceSize);
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return isComplete_ || !waiting_.empty(); });
        if (waiting_.empty()) return;
        Entry& entry = *waiting_.top();
        waiting_.pop();
        lock.unlock();
        entry.isGood = isAsExpected(entry.job, buffer);
        lock.lock();
    }
}

} // namespace corvane::CodeSignature
