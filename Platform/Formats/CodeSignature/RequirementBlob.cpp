#include "Platform/Formats/ByteCursor.hpp"
#include "Platform/Formats/CodeSignature/RequirementExpression.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Trust/OpenSSLOwners.hpp"

#include <openssl/err.h>

namespace corvane::CodeSignature {
namespace {

using Expression = Requirement::Expression;
using Operation = RequirementMatch::Operation;

constexpr std::string_view format = "requirement";
constexpr std::string_view requirementMagic("\xfa\xde\x0c\x00", 4);
constexpr std::string_view setMagic("\xfa\xde\x0c\x01", 4);
constexpr std::uint32_t expressionKind = 1;
constexpr std::uint32_t designatedType = 3;

/// Longest object identifier whose length takes one byte.
constexpr std::size_t objectIdentifierLimit = 127;
constexpr std::size_t sha1Size = 20;

constexpr std::uint32_t flagsMask = 0xFF000000U;
/// Readers that do not know the operation pass over its data and count it as false.
constexpr std::uint32_t unknownIsFalse = 0x80000000U;

enum class Opcode : std::uint32_t {
    isFalse = 0,
    isTrue = 1,
    identifier = 2,
    appleAnchor = 3,
    certificateHash = 4,
    both = 6,
    either = 7,
    directoryHash = 8,
    negation = 9,
    infoValue = 10,
    certificateField = 11,
    trustedCertificate = 12,
    trustedAnchor = 13,
    certificateExtension = 14,
    appleGenericAnchor = 15,
    entitlementValue = 16,
    certificatePolicy = 17,
    namedAnchor = 18,
    namedCode = 19,
    platform = 20,
    notarized = 21,
    certificateTime = 22,
    legacy = 23,
};

/// An operation comes before its operands. All numbers have 32 bits.
class BlobParser {
  public:
    explicit BlobParser(std::string_view blob) : cursor_(blob, format) {
        if (blob.size() > requirementSizeLimit) cursor_.fail("too large");
        cursor_.expect(requirementMagic);
        if (cursor_.u32BigEndian() != blob.size()) cursor_.fail("expected its own size before this, found another");
        const std::uint32_t kind = cursor_.u32BigEndian();
        if (kind != expressionKind) cursor_.fail("expected kind 1 before this, found " + std::to_string(kind));
    }

    Expression parse() {
        Expression whole = expression(0);
        if (cursor_.remaining() > 0) cursor_.fail("bytes behind the end");
        return whole;
    }

  private:
    Expression expression(int depth) {
        if (depth > requirementDepthLimit) cursor_.fail("too many levels");
        const std::uint32_t number = cursor_.u32BigEndian();
        switch (static_cast<Opcode>(number)) {
        case Opcode::both:
            return {Expression::AllOf{pair(depth + 1)}};
        case Opcode::either:
            return {Expression::AnyOf{pair(depth + 1)}};
        case Opcode::negation:
            return {Expression::Not{std::make_shared<const Expression>(expression(depth + 1))}};
        case Opcode::certificateHash:
        case Opcode::trustedCertificate:
        case Opcode::certificateField:
        case Opcode::certificateExtension:
        case Opcode::certificatePolicy:
        case Opcode::certificateTime:
            return ofCertificate(static_cast<Opcode>(number));
        default:
            return simple(number);
        }
    }

    std::vector<Expression> pair(int depth) {
        std::vector<Expression> parts;
        parts.push_back(expression(depth));
        parts.push_back(expression(depth));
        return parts;
    }

    Expression ofCertificate(Opcode opcode) {
        const auto slot = static_cast<CertificateSlot>(cursor_.u32BigEndian());
        if (opcode == Opcode::trustedCertificate) return {Expression::TrustedCertificate{slot}};
        if (opcode == Opcode::certificateHash) return {Expression::CertificateHash{slot, sha1()}};
        if (opcode == Opcode::certificateField) {
            const std::string field = text();
            std::optional<std::string> oid = subjectFieldOID(field);
            if (!oid) cursor_.fail("unknown field of a certificate before this, " + field);
            return {Expression::CertificateField{slot, *std::move(oid), match()}};
        }
        std::string oid = objectIdentifier();
        if (opcode == Opcode::certificateExtension) {
            return {Expression::CertificateExtension{slot, std::move(oid), match()}};
        }
        if (opcode == Opcode::certificatePolicy) return {Expression::CertificatePolicy{slot, std::move(oid), match()}};
        return {Expression::CertificateTime{slot, std::move(oid), match()}};
    }

    Expression simple(std::uint32_t number) {
        switch (static_cast<Opcode>(number)) {
        case Opcode::isTrue:
            return {Expression::Constant{true}};
        case Opcode::isFalse:
        case Opcode::legacy:
            return {Expression::Constant{false}};
        case Opcode::identifier:
            return {Expression::Identifier{text()}};
        case Opcode::directoryHash:
            return {Expression::DirectoryHash{sha1()}};
        case Opcode::appleAnchor:
            return {Expression::AppleAnchor{}};
        case Opcode::appleGenericAnchor:
            return {Expression::AppleGenericAnchor{}};
        case Opcode::trustedAnchor:
            return {Expression::TrustedAnchor{}};
        case Opcode::notarized:
            return {Expression::Notarized{}};
        case Opcode::platform:
            return {Expression::Platform{static_cast<std::int32_t>(cursor_.u32BigEndian())}};
        case Opcode::infoValue: {
            std::string key = text();
            return {Expression::InfoValue{std::move(key), match()}};
        }
        case Opcode::entitlementValue: {
            std::string key = text();
            return {Expression::EntitlementValue{std::move(key), match()}};
        }
        case Opcode::namedAnchor:
        case Opcode::namedCode:
            // Only a Mac's own database knows such names.
            text();
            return {Expression::Constant{false}};
        default:
            return unknown(number);
        }
    }

    Expression unknown(std::uint32_t number) {
        if ((number & flagsMask) != unknownIsFalse) cursor_.fail("unknown operation " + std::to_string(number));
        text();
        return {Expression::Constant{false}};
    }

    /// Bytes, which are filled up to a multiple of four.
    std::string text() {
        const std::size_t size = cursor_.u32BigEndian();
        std::string bytes(cursor_.bytes(size));
        cursor_.skip((4 - size % 4) % 4);
        return bytes;
    }

    std::string sha1() {
        std::string hash = text();
        if (hash.size() != sha1Size) cursor_.fail("expected a hash of 20 bytes before this");
        return hash;
    }

    std::string objectIdentifier() {
        const std::string content = text();
        if (content.empty() || content.size() > objectIdentifierLimit) cursor_.fail("object identifier too long");
        const std::string der = std::string("\x06") + static_cast<char>(content.size()) + content;
        const auto* bytes = reinterpret_cast<const unsigned char*>(der.data());
        const OpenSSL::Object object(d2i_ASN1_OBJECT(nullptr, &bytes, static_cast<long>(der.size())));
        ERR_clear_error();
        if (!object) cursor_.fail("expected an object identifier before this");
        return OpenSSL::text(object.get());
    }

    RequirementMatch match() {
        RequirementMatch match{.operation = static_cast<Operation>(cursor_.u32BigEndian())};
        if (match.operation > Operation::absent) cursor_.fail("unknown kind of comparison before this");
        if (match.operation >= Operation::on && match.operation <= Operation::onOrAfter) {
            match.time = time();
        } else if (match.operation != Operation::exists && match.operation != Operation::absent) {
            match.text = text();
        }
        return match;
    }

    /// Seconds since 2001, signed.
    Time time() {
        constexpr std::int64_t limit = 253402300799;
        const auto seconds = static_cast<std::int64_t>(cursor_.u64BigEndian());
        if (seconds < -limit || seconds > limit) cursor_.fail("expected a time before this, found a number too large");
        return Time(std::chrono::seconds(seconds + PropertyList::secondsFrom1970To2001));
    }

    ByteCursor cursor_;
};

/// The requirement of a set that begins at an offset.
std::string_view member(std::string_view set, std::size_t offset) {
    ByteCursor cursor(set, format);
    cursor.skip(offset);
    cursor.expect(requirementMagic);
    const std::uint32_t size = cursor.u32BigEndian();
    if (size > set.size() - offset) cursor.fail("expected " + std::to_string(size) + " bytes, found the end");
    return set.substr(offset, size);
}

} // namespace

Requirement Requirement::parseBlob(std::string_view blob) {
    return Requirement(std::make_shared<const Expression>(BlobParser(blob).parse()));
}

RequirementSet RequirementSet::parse(std::string_view blob) {
    ByteCursor cursor(blob, format);
    cursor.expect(setMagic);
    if (cursor.u32BigEndian() != blob.size()) cursor.fail("expected the size of the set before this, found another");
    RequirementSet set;
    set.count = cursor.u32BigEndian();
    for (std::size_t left = set.count; left > 0; --left) {
        const std::uint32_t type = cursor.u32BigEndian();
        const std::string_view content = member(blob, cursor.u32BigEndian());
        if (type != designatedType) continue;
        if (set.designated) cursor.fail("two designated requirements");
        set.designated = Requirement::parseBlob(content);
    }
    return set;
}

} // namespace corvane::CodeSignature
