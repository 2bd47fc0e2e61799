#pragma once

#include "Platform/Formats/ByteCursor.hpp"
#include "Platform/Formats/FormatError.hpp"

#include <cstdint>
#include <string_view>

namespace corvane::CodeSignature {

/// How errors call the data.
constexpr const char* blobFormat = "code signature";

/// What signatures are made of: four bytes that say of what kind, four of the whole length, and the content; the
/// highest byte of a number comes first. Does not own the bytes.
struct Blob {
    static constexpr std::size_t headerSize = 8;

    std::uint32_t magic = 0;
    /// Header included.
    std::string_view bytes;

    std::string_view content() const { return bytes.substr(headerSize); }

    /// The blob that some bytes begin with. @param base offset of the bytes, for errors @throws FormatError
    static Blob first(std::string_view bytes, std::uint64_t base = 0) {
        ByteCursor cursor(bytes, blobFormat, base);
        Blob blob{.magic = cursor.u32BigEndian(), .bytes = {}};
        const std::uint32_t length = cursor.u32BigEndian();
        if (length < headerSize || length > bytes.size()) {
            cursor.fail("expected a blob within the signature, found a length of " + std::to_string(length));
        }
        blob.bytes = bytes.substr(0, length);
        return blob;
    }
};

} // namespace corvane::CodeSignature
