#include "Platform/Formats/NotarizationTicket/NotarizationTicket.hpp"

#include "Platform/Formats/ByteCursor.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Trust/AppleMarkers.hpp"
#include "Platform/Trust/BerReader.hpp"
#include "Platform/Trust/OpenSSLOwners.hpp"

#include <algorithm>

namespace corvane {
namespace {

constexpr const char* format = "ticket";
constexpr const char* serviceRoot = "Apple Root CA - G3";

/// Real tickets carry two certificates.
constexpr std::size_t maximumCertificates = 8;

/// Bytes of the content before the records, and of one record.
constexpr std::size_t contentHeaderSize = 24;
constexpr std::size_t recordSize = 1 + NotarizationTicket::hashSize;

[[noreturn]] void fail(const std::string& problem) { throw FormatError(std::string(format) + ": " + problem); }

std::vector<Certificate> readCertificates(std::string_view bytes, std::uint64_t base) {
    std::vector<Certificate> certificates;
    BerReader outer(bytes, format, base);
    for (BerReader list = outer.inside(outer.next(BerTag::sequence)); !list.atEnd();) {
        if (certificates.size() == maximumCertificates) list.fail("too many certificates");
        certificates.push_back(Certificate::parse(list.next(BerTag::sequence).whole, format));
    }
    if (certificates.empty()) outer.fail("expected certificates, found none");
    return certificates;
}

/// The signature without the zero bytes that fill its field.
std::string readSignature(std::string_view field, std::uint64_t base) {
    BerReader reader(field, format, base);
    std::string signature(reader.next(BerTag::sequence).whole);
    if (reader.rest().find_first_not_of('\0') != std::string_view::npos) {
        reader.fail("expected only zero bytes behind the signature, found others");
    }
    return signature;
}

} // namespace

NotarizationTicket NotarizationTicket::parse(std::string_view bytes) {
    ByteCursor cursor(bytes, format);
    cursor.expect("s8ch");
    if (cursor.u32LittleEndian() != 1) cursor.fail("expected version 1 before this, found another");
    const std::uint32_t certificatesLength = cursor.u32LittleEndian();
    const std::uint32_t contentLength = cursor.u32LittleEndian();
    NotarizationTicket ticket;
    const std::uint64_t certificatesStart = cursor.offset();
    ticket.certificates_ = readCertificates(cursor.bytes(certificatesLength), certificatesStart);
    const std::uint64_t contentStart = cursor.offset();
    ticket.readContent(cursor.bytes(contentLength), contentStart);
    ticket.signedBytes_ = bytes.substr(0, cursor.offset());
    ticket.signature_ = readSignature(bytes.substr(cursor.offset()), cursor.offset());
    return ticket;
}

void NotarizationTicket::readContent(std::string_view content, std::uint64_t base) {
    ByteCursor cursor(content, format, base);
    cursor.expect("g8tk");
    if (cursor.u16LittleEndian() != 2) cursor.fail("expected version 2 of the content before this, found another");
    if (cursor.u16LittleEndian() != hashSize) cursor.fail("expected digests of 20 bytes before this, found others");
    const std::uint64_t count = cursor.u32LittleEndian();
    cursor.skip(4);
    const std::uint64_t seconds = cursor.u64LittleEndian();
    // The year 9999 is the last that certificates can state.
    if (seconds > 253402300799U) cursor.fail("expected a time before this, found a number too large");
    time_ = Time(std::chrono::seconds(seconds));
    if (count * recordSize != content.size() - contentHeaderSize) {
        cursor.fail("expected " + std::to_string(count) + " records, found " + std::to_string(cursor.remaining()) +
                    " bytes");
    }
    while (cursor.remaining() > 0) {
        const std::uint8_t type = cursor.u8();
        records_.push_back({.type = type, .hash = std::string(cursor.bytes(hashSize))});
    }
}

bool NotarizationTicket::names(HashType type, std::string_view digest) const {
    return std::any_of(records_.begin(), records_.end(), [&](const Record& record) {
        return record.type == static_cast<std::uint8_t>(type) && record.hash == digest.substr(0, hashSize);
    });
}

void NotarizationTicket::verify(const std::vector<TrustAnchor>& appleRoots) const {
    const Certificate& signer = certificates_.front();
    const TrustSettings settings{.extraRoots = {}, .now = time_, .appleRoots = appleRoots};
    const CertificateChain chain = evaluateChain(signer, certificates_, settings, time_, ChainPurpose::notarization);
    if (!chain.isTrusted()) fail("not signed by the notary service: " + (chain.expired ? "expired" : chain.problem));
    if (chain.anchor->certificate.commonName() != serviceRoot ||
        !chain.intermediateHasExtension(AppleMarkers::ticketAuthority)) {
        fail("not signed by the notary service");
    }
    if (!OpenSSL::isSignedBy(signer.x509(), EVP_sha256(), signedBytes_, signature_)) {
        fail("the signature does not verify");
    }
}

} // namespace corvane
