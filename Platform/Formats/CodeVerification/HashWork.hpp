#pragma once

#include "Platform/Formats/Digest.hpp"
#include "Support/FileURL.hpp"

#include <cstdint>
#include <string_view>
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

/// Reads and digests many parts of files on all cores, each part once for all kinds of digests and in small pieces, the
/// longest parts first so that no core is left with one at the end.
class HashWork {
  public:
    /// The number by which `isGood` knows the job.
    std::size_t add(HashJob job);
    /// Does all jobs. Called once.
    void run();
    /// After `run`: whether the file could be read and every digest is as expected.
    bool isGood(std::size_t job) const { return good_[job] != 0; }

  private:
    std::vector<HashJob> jobs_;
    std::vector<char> good_;
};

} // namespace corvane::CodeSignature
