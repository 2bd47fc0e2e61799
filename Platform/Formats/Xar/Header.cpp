#include "Platform/Formats/Xar/Header.hpp"

#include "Platform/Formats/BigEndian.hpp"
#include "Platform/Formats/ByteCursor.hpp"
#include "Platform/Formats/FormatError.hpp"

namespace corvane::Xar {
namespace {

constexpr std::string_view magic = "xar!";
constexpr std::uint16_t version = 1;

enum Algorithm : std::uint32_t { none = 0, sha1 = 1, md5 = 2, sha256OrNamed = 3, sha512 = 4 };

/// Number 3 means SHA-256, or else any algorithm that is named in the rest of the header, up to a NUL.
std::optional<DigestKind> namedAlgorithm(std::string_view rest) {
    const std::string_view name = rest.substr(0, rest.find('\0'));
    if (name.empty()) return DigestKind::sha256;
    if (name == "none") return std::nullopt;
    if (const auto kind = digestKind(name)) return kind;
    throw FormatError("xar", Header::minimumSize, "unknown checksum algorithm \"" + std::string(name) + "\"");
}

std::optional<DigestKind> checksumKind(std::uint32_t number, std::string_view rest) {
    switch (number) {
    case none:
        return std::nullopt;
    case sha1:
        return DigestKind::sha1;
    case md5:
        return DigestKind::md5;
    case sha256OrNamed:
        return namedAlgorithm(rest);
    case sha512:
        return DigestKind::sha512;
    default:
        throw FormatError("xar", 24, "unknown checksum algorithm " + std::to_string(number));
    }
}

std::uint32_t algorithmNumber(std::optional<DigestKind> kind) {
    if (!kind) return none;
    switch (*kind) {
    case DigestKind::md5:
        return md5;
    case DigestKind::sha1:
        return sha1;
    case DigestKind::sha256:
        return sha256OrNamed;
    case DigestKind::sha512:
        return sha512;
    case DigestKind::sha384:
        break;
    }
    throw FormatError("xar: an archive with SHA-384 cannot be written");
}

} // namespace

Header Header::parse(std::string_view bytes) {
    ByteCursor cursor(bytes, "xar");
    Header header;
    cursor.expect(magic);
    header.size = cursor.u16BigEndian();
    if (header.size < minimumSize) {
        throw FormatError("xar", 4, "expected a header of at least 28 bytes, found " + std::to_string(header.size));
    }
    const std::uint16_t found = cursor.u16BigEndian();
    if (found != version) throw FormatError("xar", 6, "expected version 1, found " + std::to_string(found));
    header.compressedLength = cursor.u64BigEndian();
    header.uncompressedLength = cursor.u64BigEndian();
    const std::uint32_t algorithm = cursor.u32BigEndian();
    header.checksum = checksumKind(algorithm, cursor.bytes(std::size_t{header.size} - minimumSize));
    return header;
}

std::string Header::serialized() const {
    std::string bytes(magic);
    appendBigEndian(bytes, minimumSize, 2);
    appendBigEndian(bytes, version, 2);
    appendBigEndian(bytes, compressedLength, 8);
    appendBigEndian(bytes, uncompressedLength, 8);
    appendBigEndian(bytes, algorithmNumber(checksum), 4);
    return bytes;
}

} // namespace corvane::Xar
