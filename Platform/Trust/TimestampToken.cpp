#include "Platform/Trust/TimestampToken.hpp"

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Trust/BerReader.hpp"
#include "Platform/Trust/OpenSSLOwners.hpp"
#include "Platform/Trust/SignedMessage.hpp"

#include <openssl/err.h>

#include <ctime>

namespace corvane {
namespace {

using TokenInfo = OpenSSL::Owner<TS_TST_INFO, TS_TST_INFO_free>;

constexpr const char* format = "timestamp";
constexpr const char* tokenInfoType = "1.2.840.113549.1.9.16.1.4";
constexpr const char* signingCertificate = "1.2.840.113549.1.9.16.2.12";
constexpr const char* signingCertificateV2 = "1.2.840.113549.1.9.16.2.47";

[[noreturn]] void fail(const std::string& problem) { throw FormatError(std::string(format) + ": " + problem); }

TokenInfo readInfo(const std::string& content) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(content.data());
    TokenInfo info(d2i_TS_TST_INFO(nullptr, &bytes, static_cast<long>(content.size())));
    if (!info) fail("unreadable content (" + OpenSSL::takeError() + ")");
    return info;
}

/// Null for a digest that is not accepted.
const EVP_MD* digestOf(int nid) {
    switch (nid) {
    case NID_sha1:
        return EVP_sha1();
    case NID_sha256:
        return EVP_sha256();
    case NID_sha384:
        return EVP_sha384();
    case NID_sha512:
        return EVP_sha512();
    default:
        return nullptr;
    }
}

void checkImprint(TS_TST_INFO* info, std::string_view stampedBytes) {
    TS_MSG_IMPRINT* imprint = TS_TST_INFO_get_msg_imprint(info);
    const ASN1_OBJECT* algorithm = nullptr;
    X509_ALGOR_get0(&algorithm, nullptr, nullptr, TS_MSG_IMPRINT_get_algo(imprint));
    const EVP_MD* digest = digestOf(OBJ_obj2nid(algorithm));
    if (digest == nullptr) fail("the algorithm of the imprint is not supported");
    ASN1_OCTET_STRING* stamped = TS_MSG_IMPRINT_get_msg(imprint);
    const std::string_view found(reinterpret_cast<const char*>(ASN1_STRING_get0_data(stamped)),
                                 static_cast<std::size_t>(ASN1_STRING_length(stamped)));
    if (found != OpenSSL::digest(digest, stampedBytes)) fail("it was issued for another signature");
}

Time timeOf(TS_TST_INFO* info) {
    std::tm parts{};
    if (ASN1_TIME_to_tm(TS_TST_INFO_get_time(info), &parts) != 1) fail("unreadable time");
    return Time(std::chrono::seconds(::timegm(&parts)));
}

/// The first certificate identifier of the attribute: SEQUENCE { SEQUENCE OF SEQUENCE { hash ... } ... }.
BerReader firstIdentifier(std::string_view attribute) {
    BerReader outer(attribute, format);
    BerReader inner = outer.inside(outer.next(BerTag::sequence));
    BerReader identifiers = inner.inside(inner.next(BerTag::sequence));
    return identifiers.inside(identifiers.next(BerTag::sequence));
}

/// The digest that the second form of the identifier states; SHA-256 where it states none.
const EVP_MD* statedDigest(BerReader& identifier) {
    const auto algorithm = identifier.nextIf(BerTag::sequence);
    if (!algorithm) return EVP_sha256();
    const std::string oid = identifier.inside(*algorithm).nextObjectIdentifier();
    return digestOf(OBJ_txt2nid(oid.c_str()));
}

/// The signer signs for which certificate it is, so that none can be put in its place.
void checkSigningCertificate(const SignedMessage& message) {
    const auto first = message.signedAttribute(signingCertificate);
    const auto second = message.signedAttribute(signingCertificateV2);
    if (first.empty() && second.empty()) fail("it does not name its signer's certificate");
    const auto check = [&](const std::string& attribute, bool statesDigest) {
        BerReader identifier = firstIdentifier(attribute);
        const EVP_MD* digest = statesDigest ? statedDigest(identifier) : EVP_sha1();
        if (digest == nullptr || identifier.nextOctets() != OpenSSL::digest(digest, message.signer().der())) {
            fail("it names another signer's certificate");
        }
    };
    for (const std::string& attribute : first) check(attribute, false);
    for (const std::string& attribute : second) check(attribute, true);
}

} // namespace

TimestampToken TimestampToken::verify(std::string_view token, std::string_view stampedBytes,
                                      const TrustSettings& settings) {
    const SignedMessage message = SignedMessage::parse(token, format);
    if (message.contentType() != tokenInfoType || !message.content()) fail("it is no timestamp token");
    const TokenInfo info = readInfo(*message.content());
    checkImprint(info.get(), stampedBytes);
    message.verify(*message.content());
    checkSigningCertificate(message);
    const Time time = timeOf(info.get());
    return {.time = time,
            .chain =
                evaluateChain(message.signer(), message.certificates(), settings, time, ChainPurpose::timestamping)};
}

} // namespace corvane
