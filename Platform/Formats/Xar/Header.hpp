#pragma once

#include "Platform/Formats/Digest.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace corvane::Xar {

/// The fixed part at the start of an archive. All integers in it are big-endian; the compressed table of contents
/// follows directly, and the heap follows that.
struct Header {
    /// Bytes of the header, at least `minimumSize`.
    std::uint16_t size = minimumSize;
    std::uint64_t compressedLength = 0;
    std::uint64_t uncompressedLength = 0;
    /// The digest over the compressed table of contents; nothing for the number 0.
    std::optional<DigestKind> checksum;

    static constexpr std::uint16_t minimumSize = 28;

    std::uint64_t heapOffset() const { return size + compressedLength; }

    /// @param bytes the start of a file: everything up to 65,535 bytes
    /// @throws FormatError
    static Header parse(std::string_view bytes);
    /// The bytes of a header of the minimum size.
    std::string serialized() const;
};

} // namespace corvane::Xar
