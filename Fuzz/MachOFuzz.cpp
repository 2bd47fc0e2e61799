// Reads bytes as a Mach-O file. Its slices must lie within it, and their checksums be those of their bytes, however the
// file is cut into pieces.

#include "Platform/Formats/Bom/ArchitectureChecksums.hpp"
#include "Platform/Formats/MachO/Slices.hpp"
#include "Platform/Formats/PosixChecksum.hpp"

#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace corvane;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view file(reinterpret_cast<const char*>(data), size);
    const auto slices = MachO::slices(file.substr(0, MachO::headerSize), size);
    if (slices.size() > MachO::sliceLimit) std::abort();
    Bom::ArchitectureChecksums checksums(slices);
    // Lengths that the bytes themselves choose.
    for (std::size_t at = 0; at < size;) {
        const std::string_view piece = file.substr(at, 1 + data[at]);
        checksums.update(piece);
        at += piece.size();
    }
    const auto architectures = checksums.finish();
    for (std::size_t index = 0; index < slices.size(); ++index) {
        const MachO::Slice& slice = slices[index];
        if (slice.offset > size || slice.size > size - slice.offset) std::abort();
        if (architectures[index].checksum != posixChecksum(file.substr(slice.offset, slice.size))) std::abort();
    }
    return 0;
}
