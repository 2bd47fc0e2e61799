#pragma once

#include "Platform/Formats/Digest.hpp"
#include "Support/XML.hpp"

#include <string>

namespace corvane::Xar {

/// A table of contents as it goes to the start of an archive. The heap comes directly after `start`; its first bytes
/// are `checksum`, at the place that the table of contents names.
struct SealedContents {
    /// The header and the compressed table of contents.
    std::string start;
    /// The digest of the compressed table of contents.
    std::string checksum;

    /// Serialises, compresses and digests a finished document. Its `checksum` element must already name the same kind
    /// of digest.
    static SealedContents make(const XML::Document& document, DigestKind kind);
};

} // namespace corvane::Xar
