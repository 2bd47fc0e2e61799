#pragma once

#include "Platform/Formats/Xar/Archive.hpp"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// The checksums of the files in an archive. The signature of a package covers the table of contents alone; the files
/// are covered by the checksums in it.
namespace corvane::HeapChecksums {

/// Whether a file without a checksum is passed over or is a failure.
enum class Missing { allowed, refused };

/// Reads all stored data once and compares their checksums, on several threads when there are several large files.
/// Memory is one buffer a thread. Extended attributes are left out: real archives have wrong checksums there.
/// @throws FormatError when a checksum differs, or ranges overlap without being the same; FileError
void verify(const Xar::Archive& archive, Missing missing);

/// The same comparison for somebody who reads the heap from front to back anyhow. For one thread at a time.
class Sequence {
  public:
    /// @throws FormatError as `verify` does before it reads
    Sequence(const Xar::TableOfContents& contents, Missing missing);

    /// Takes the bytes at an offset of the heap, which follow those of the call before without a gap.
    /// @throws FormatError when a checksum that ends in them differs
    void update(std::uint64_t offset, std::string_view bytes);
    /// To be called behind the last bytes. @throws FormatError when data were left out or an empty file has a wrong
    /// checksum
    void finish();

  private:
    struct Check {
        Xar::Checksum expected;
        std::string path;
        Hasher hasher;
    };
    /// The checks of one range; equal files may share their data.
    struct Group {
        Xar::HeapRange range;
        std::vector<Check> checks;
    };
    static void compare(Group& group);

    std::vector<Group> groups_;
    std::size_t next_ = 0;
    /// Offset behind the bytes that were taken.
    std::uint64_t position_ = 0;
};

} // namespace corvane::HeapChecksums
