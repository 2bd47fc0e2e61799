#pragma once

#include "Platform/Formats/Digest.hpp"
#include "Support/FileURL.hpp"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <queue>
#include <string_view>
#include <thread>
#include <vector>

namespace corvane::CodeSignature {

/// The digests that the pages of some bytes must have, one behind the other.
struct ExpectedDigests {
    DigestKind kind = DigestKind::sha256;
    /// Bytes of each; fewer than the kind has when only the first ones are known.
    std::size_t size = 0;
    /// Not owned.
    std::string_view digests;
};

/// Bytes of a file and the digests that they must have.
struct HashJob {
    FileURL file;
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
    /// In bytes; 0 when one digest covers everything.
    std::uint64_t pageSize = 0;
    /// The file must end where the bytes do.
    bool isWholeFile = false;
    std::vector<ExpectedDigests> expected{};
};

/// Reads and digests many parts of files on all cores, each part once for all kinds of digests and in small pieces.
/// Other threads begin while jobs are still being added; of those that wait the longest comes first, so that no core is
/// left alone with a long one at the end. Owned and used by one thread.
class HashWork {
  public:
    HashWork();
    HashWork(const HashWork&) = delete;
    HashWork& operator=(const HashWork&) = delete;
    /// Gives up what has not begun.
    ~HashWork();

    /// The number by which `isGood` knows the job.
    std::size_t add(HashJob job);
    /// Lends a hand until all jobs are done. No job may follow.
    void finish();
    /// After `finish`: whether the file could be read and every digest is as expected.
    bool isGood(std::size_t job) const { return jobs_[job].isGood; }

  private:
    struct Entry {
        HashJob job;
        bool isGood = false;
    };
    struct IsShorter {
        bool operator()(const Entry* left, const Entry* right) const { return left->job.length < right->job.length; }
    };

    /// Does jobs until there will be no more.
    void work();

    std::mutex mutex_;
    std::condition_variable changed_;
    /// Entries stay where they are. What a thread has taken out of `waiting_` it alone touches.
    std::deque<Entry> jobs_;
    std::priority_queue<Entry*, std::vector<Entry*>, IsShorter> waiting_;
    bool isComplete_ = false;
    std::vector<std::jthread> threads_;
};

} // namespace corvane::CodeSignature
