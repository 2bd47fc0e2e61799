#pragma once

#include "Platform/Formats/ByteCursor.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace corvane {

/// Identifier octets that signatures are made of.
namespace BerTag {
constexpr std::uint8_t integer = 0x02;
constexpr std::uint8_t octetString = 0x04;
constexpr std::uint8_t objectIdentifier = 0x06;
constexpr std::uint8_t sequence = 0x30;
constexpr std::uint8_t set = 0x31;
constexpr std::uint8_t constructedOctetString = 0x24;
/// Context-specific tag 0, primitive; `context0`, `context1`: constructed.
constexpr std::uint8_t primitiveContext0 = 0x80;
constexpr std::uint8_t context0 = 0xa0;
constexpr std::uint8_t context1 = 0xa1;
} // namespace BerTag

/// One element of ASN.1 data. The views point into the data that was read.
struct BerElement {
    std::uint8_t tag = 0;
    std::string_view content;
    /// Header, content and, for an indefinite length, the end marker.
    std::string_view whole;
    /// Offset of the content in the data.
    std::uint64_t offset = 0;
};

/// Reads ASN.1 elements one after the other, in BER with definite and indefinite lengths. Signatures are read with
/// this and not with a library's decoder because the exact bytes of the signed attributes count: some are signed in an
/// order that no encoder would write. Tag numbers above 30 are refused. Throws `FormatError`.
class BerReader {
  public:
    /// Does not own the bytes. @param format how errors call the data
    BerReader(std::string_view bytes, std::string_view format, std::uint64_t base = 0)
        : bytes_(bytes), format_(format), cursor_(bytes, format, base) {}

    bool atEnd() const { return cursor_.remaining() == 0; }
    BerElement next();
    /// The next element, which must have the tag.
    BerElement next(std::uint8_t tag);
    /// The next element if it has the tag; otherwise nothing is read.
    std::optional<BerElement> nextIf(std::uint8_t tag);
    /// The next element, which must be an octet string; pieces of a constructed one are joined.
    std::string nextOctets();
    /// The next element, which must be an object identifier, as dotted text.
    std::string nextObjectIdentifier();

    BerReader inside(const BerElement& element) const { return {element.content, format_, element.offset}; }
    /// The rest of the data.
    std::string_view rest() const { return bytes_.substr(bytes_.size() - cursor_.remaining()); }

    [[noreturn]] void fail(std::string_view problem) const { cursor_.fail(problem); }

  private:
    std::string_view bytes_;
    std::string_view format_;
    ByteCursor cursor_;
};

} // namespace corvane
