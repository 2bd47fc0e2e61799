// Reads bytes as a Mach-O file. Its slices must lie within it, and their checksums be those of their bytes, however the
// file is cut into pieces. What the load commands of a slice name must lie within the slice.

#include "Platform/Formats/Bom/ArchitectureChecksums.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/MachO/Image.hpp"
#include "Platform/Formats/PosixChecksum.hpp"
#include "Support/UniqueDescriptor.hpp"

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace corvane;

namespace {

/// A file of the bytes, in memory only.
UniqueDescriptor fileOf(std::string_view bytes) {
    UniqueDescriptor file(::memfd_create("fuzz", MFD_CLOEXEC));
    if (::write(file.get(), bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) std::abort();
    return file;
}

template <class Question>
void ask(Question question) {
    try {
        question();
    } catch (const FormatError&) {
    }
}

void readImage(int file, const MachO::Slice& slice) {
    const auto image = MachO::Image::read(file, "fuzz", slice);
    for (const auto& range : {image.signature, image.linkEdit, image.infoPropertyList}) {
        if (range && (range->offset > slice.size || range->size > slice.size - range->offset)) std::abort();
    }
    MachO::architectureName(slice);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view file(reinterpret_cast<const char*>(data), size);
    const auto slices = MachO::slices(file.substr(0, MachO::headerSize), size);
    if (slices.size() > MachO::sliceLimit) std::abort();
    const UniqueDescriptor descriptor = fileOf(file);
    for (const MachO::Slice& slice : slices) ask([&] { readImage(descriptor.get(), slice); });
    ask([&] { MachO::isTightlyPacked(descriptor.get(), "fuzz"); });
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
