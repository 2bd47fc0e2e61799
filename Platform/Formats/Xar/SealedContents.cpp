#include "Platform/Formats/Xar/SealedContents.hpp"

#include "Platform/Formats/Gzip/Writer.hpp"
#include "Platform/Formats/Xar/Header.hpp"

namespace corvane::Xar {

SealedContents SealedContents::make(const XML::Document& document, DigestKind kind) {
    constexpr int bestCompression = 9;
    const std::string text = document.serialized(true);
    const std::string compressed = Gzip::compressed(text, Gzip::Framing::zlib, bestCompression);
    const Header header{.compressedLength = compressed.size(), .uncompressedLength = text.size(), .checksum = kind};
    return {.start = header.serialized() + compressed, .checksum = digest(kind, compressed)};
}

} // namespace corvane::Xar
