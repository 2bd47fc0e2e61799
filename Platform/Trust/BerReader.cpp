#include "Platform/Trust/BerReader.hpp"

#include "Platform/Trust/OpenSSLOwners.hpp"

#include <openssl/err.h>

namespace corvane {
namespace {

struct Header {
    std::uint8_t tag = 0;
    /// Absent: the content goes on to an end marker.
    std::optional<std::uint32_t> length;

    bool isEndMarker() const { return tag == 0 && length == 0U; }
};

constexpr std::uint8_t constructed = 0x20;

Header readHeader(ByteCursor& cursor) {
    Header header{.tag = cursor.u8(), .length = std::nullopt};
    if ((header.tag & 0x1fU) == 0x1fU) cursor.fail("expected a tag number up to 30, found a larger one");
    const std::uint8_t first = cursor.u8();
    if (first < 0x80) {
        header.length = first;
    } else if (first == 0x80) {
        if ((header.tag & constructed) == 0) cursor.fail("expected a length, found none on a primitive element");
    } else if (first > 0x84) {
        cursor.fail("expected a length of at most 4 bytes, found a longer one");
    } else {
        std::uint32_t length = 0;
        for (int count = first & 0x7f; count > 0; --count) length = (length << 8U) | cursor.u8();
        header.length = length;
    }
    return header;
}

/// Passes over the content of an element of indefinite length and its end marker.
void skipToEndMarker(ByteCursor& cursor) {
    for (std::size_t open = 1; open > 0;) {
        const Header header = readHeader(cursor);
        if (!header.length) {
            ++open;
        } else if (header.isEndMarker()) {
            --open;
        } else {
            cursor.skip(*header.length);
        }
    }
}

} // namespace

BerElement BerReader::next() {
    const std::string_view start = rest();
    const Header header = readHeader(cursor_);
    BerElement element{.tag = header.tag, .content = {}, .whole = {}, .offset = cursor_.offset()};
    const std::string_view behindHeader = rest();
    if (header.length) {
        element.content = cursor_.bytes(*header.length);
    } else {
        skipToEndMarker(cursor_);
        element.content = behindHeader.substr(0, behindHeader.size() - rest().size() - 2);
    }
    element.whole = start.substr(0, start.size() - rest().size());
    return element;
}

BerElement BerReader::next(std::uint8_t tag) {
    if (!atEnd() && static_cast<std::uint8_t>(rest()[0]) != tag) {
        fail("expected tag " + std::to_string(tag) + ", found " + std::to_string(static_cast<std::uint8_t>(rest()[0])));
    }
    return next();
}

std::optional<BerElement> BerReader::nextIf(std::uint8_t tag) {
    if (atEnd() || static_cast<std::uint8_t>(rest()[0]) != tag) return std::nullopt;
    return next();
}

std::string BerReader::nextOctets() {
    const std::optional<BerElement> pieces = nextIf(BerTag::constructedOctetString);
    if (!pieces) return std::string(next(BerTag::octetString).content);
    std::string octets;
    for (BerReader inner = inside(*pieces); !inner.atEnd();) octets += inner.next(BerTag::octetString).content;
    return octets;
}

std::string BerReader::nextObjectIdentifier() {
    const std::string_view whole = next(BerTag::objectIdentifier).whole;
    const auto* bytes = reinterpret_cast<const unsigned char*>(whole.data());
    const OpenSSL::Object object(d2i_ASN1_OBJECT(nullptr, &bytes, static_cast<long>(whole.size())));
    ERR_clear_error();
    if (!object) fail("expected an object identifier before this, found none");
    return OpenSSL::text(object.get());
}

} // namespace corvane
