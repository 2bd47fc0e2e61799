#pragma once

#include "Platform/Formats/Xar/Archive.hpp"
#include "Platform/Trust/Certificate.hpp"

#include <cstdint>
#include <vector>

namespace corvane::PackageSigning {

/// What stands at the start of a signed package's heap, in this order; sizes in bytes.
struct ReservedSpace {
    DigestKind digest;
    std::uint64_t rsa;
    std::uint64_t cms;

    std::uint64_t total() const { return digestSize(digest) + rsa + cms; }
};

/// The part of the heap that holds the files' data and extended attributes, with whatever lies between them. Neither
/// the checksum nor signatures are in it, unless a file's range covers them as well. @throws FormatError
Xar::HeapRange filesRange(const Xar::Archive& archive);

/// The package's table of contents as it is when `reserved` stands at the heap's start, followed by `files` (as
/// `filesRange` gives it). Two signature elements with the certificates replace those that were there; everything else
/// stays as it is.
XML::Document signedContents(const Xar::Archive& archive, const Xar::HeapRange& files, const ReservedSpace& reserved,
                             const std::vector<Certificate>& certificates);

} // namespace corvane::PackageSigning
