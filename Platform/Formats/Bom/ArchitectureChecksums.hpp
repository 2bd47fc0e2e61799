#pragma once

#include "Platform/Formats/Bom/Entry.hpp"
#include "Platform/Formats/MachO/Slices.hpp"
#include "Platform/Formats/PosixChecksum.hpp"

#include <cstdint>
#include <string_view>
#include <vector>

namespace corvane::Bom {

/// Computes what a Bom says of the architectures of a Mach-O file, while the bytes of the file pass by.
class ArchitectureChecksums {
  public:
    /// @param slices those of the file; none when it is another file
    explicit ArchitectureChecksums(const std::vector<MachO::Slice>& slices);

    /// The next bytes of the file.
    void update(std::string_view bytes);
    /// One for each slice, in the same order. Called once, as the last operation, when the whole file has passed.
    std::vector<Architecture> finish();

  private:
    struct Pending {
        MachO::Slice slice;
        PosixChecksum checksum;
    };

    std::vector<Pending> pending_;
    /// Offset in the file of the next bytes.
    std::uint64_t position_ = 0;
};

} // namespace corvane::Bom
