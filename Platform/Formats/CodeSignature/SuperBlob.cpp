#include "Platform/Formats/CodeSignature/SuperBlob.hpp"

#include "Platform/Formats/CodeSignature/Blob.hpp"

#include <algorithm>
#include <array>

namespace corvane::CodeSignature {
namespace {

constexpr std::uint32_t superBlobMagic = 0xFADE0CC0;
/// Around the CMS.
constexpr std::uint32_t wrapperMagic = 0xFADE0B01;

/// More blobs than there are types.
constexpr std::uint32_t blobLimit = 64;

bool isKnown(Slot slot) {
    constexpr std::array<Slot, 12> known{Slot::codeDirectory,
                                         Slot::requirements,
                                         Slot::topDirectory,
                                         Slot::entitlements,
                                         Slot::diskImage,
                                         Slot::entitlementsDER,
                                         Slot::launchConstraintSelf,
                                         Slot::launchConstraintParent,
                                         Slot::launchConstraintResponsible,
                                         Slot::libraryConstraint,
                                         Slot::signature,
                                         Slot::ticket};
    const auto first = static_cast<std::uint32_t>(Slot::alternateCodeDirectories);
    const auto number = static_cast<std::uint32_t>(slot);
    return std::find(known.begin(), known.end(), slot) != known.end() ||
           (number >= first && number < first + alternateCodeDirectoryLimit);
}

/// A component as it is handed on.
std::string component(Slot slot, const Blob& blob) {
    if (blob.bytes.size() > componentSizeLimit) throw FormatError("code signature: a component is too large");
    if (slot != Slot::signature) return std::string(blob.bytes);
    if (blob.magic != wrapperMagic) throw FormatError("code signature: expected a wrapped CMS, found another blob");
    return std::string(blob.content());
}

} // namespace

Components readSuperBlob(std::string_view bytes) {
    const Blob all = Blob::first(bytes);
    if (all.magic != superBlobMagic)
        throw FormatError(blobFormat, 0, "expected the blobs of a signature, found others");
    if (bytes.substr(all.bytes.size()).find_first_not_of('\0') != std::string_view::npos) {
        throw FormatError(blobFormat, all.bytes.size(), "expected padding behind the signature, found other bytes");
    }
    ByteCursor index(all.content(), blobFormat, Blob::headerSize);
    const std::uint32_t count = index.u32BigEndian();
    if (count > blobLimit) index.fail("expected at most 64 blobs, found " + std::to_string(count));
    Components components;
    std::size_t left = all.bytes.size();
    for (std::uint32_t number = 0; number < count; ++number) {
        const auto slot = static_cast<Slot>(index.u32BigEndian());
        const std::uint32_t offset = index.u32BigEndian();
        if (offset < Blob::headerSize + 4 + std::size_t{8} * count || offset > all.bytes.size()) {
            index.fail("expected a blob behind the index, found one at " + std::to_string(offset));
        }
        if (!isKnown(slot)) continue;
        if (components.find(slot) != nullptr) index.fail("expected each type once, found one twice");
        const Blob blob = Blob::first(all.bytes.substr(offset), offset);
        // Blobs that share their bytes could make a small signature large.
        if (blob.bytes.size() > left) index.fail("expected blobs side by side, found some that overlap");
        left -= blob.bytes.size();
        components.add(slot, component(slot, blob));
    }
    return components;
}

} // namespace corvane::CodeSignature
