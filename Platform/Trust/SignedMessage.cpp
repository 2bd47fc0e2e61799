#include "Platform/Trust/SignedMessage.hpp"

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Trust/BerReader.hpp"
#include "Platform/Trust/OpenSSLOwners.hpp"

#include <openssl/err.h>

#include <algorithm>
#include <array>

namespace corvane {
namespace {

constexpr const char* dataType = "1.2.840.113549.1.7.1";
constexpr const char* signedDataType = "1.2.840.113549.1.7.2";
constexpr const char* contentTypeAttribute = "1.2.840.113549.1.9.3";
constexpr const char* messageDigestAttribute = "1.2.840.113549.1.9.4";
constexpr const char* timestampAttribute = "1.2.840.113549.1.9.16.2.14";

/// More certificates than any real message carries.
constexpr std::size_t maximumCertificates = 32;

struct Algorithm {
    std::string_view oid;
    /// Null: the digest algorithm of the signer decides.
    const EVP_MD* (*digest)();
    int keyType;
};

constexpr std::array<Algorithm, 4> digestAlgorithms{{
    {"1.3.14.3.2.26", EVP_sha1, 0},
    {"2.16.840.1.101.3.4.2.1", EVP_sha256, 0},
    {"2.16.840.1.101.3.4.2.2", EVP_sha384, 0},
    {"2.16.840.1.101.3.4.2.3", EVP_sha512, 0},
}};

constexpr std::array<Algorithm, 9> signatureAlgorithms{{
    {"1.2.840.113549.1.1.1", nullptr, EVP_PKEY_RSA},
    {"1.2.840.113549.1.1.5", EVP_sha1, EVP_PKEY_RSA},
    {"1.2.840.113549.1.1.11", EVP_sha256, EVP_PKEY_RSA},
    {"1.2.840.113549.1.1.12", EVP_sha384, EVP_PKEY_RSA},
    {"1.2.840.113549.1.1.13", EVP_sha512, EVP_PKEY_RSA},
    {"1.2.840.10045.4.1", EVP_sha1, EVP_PKEY_EC},
    {"1.2.840.10045.4.3.2", EVP_sha256, EVP_PKEY_EC},
    {"1.2.840.10045.4.3.3", EVP_sha384, EVP_PKEY_EC},
    {"1.2.840.10045.4.3.4", EVP_sha512, EVP_PKEY_EC},
}};

template <std::size_t count>
const Algorithm& find(const std::array<Algorithm, count>& algorithms, const std::string& oid, const std::string& name) {
    const auto* found = std::find_if(algorithms.begin(), algorithms.end(),
                                     [&](const Algorithm& algorithm) { return algorithm.oid == oid; });
    if (found == algorithms.end()) throw FormatError(name + ": the algorithm " + oid + " is not supported");
    return *found;
}

std::string algorithmIdentifier(BerReader& reader) {
    return reader.inside(reader.next(BerTag::sequence)).nextObjectIdentifier();
}

bool isIssuedAs(const Certificate& certificate, const std::string& issuer, const std::string& serial) {
    const auto* issuerBytes = reinterpret_cast<const unsigned char*>(issuer.data());
    const auto* serialBytes = reinterpret_cast<const unsigned char*>(serial.data());
    const OpenSSL::Name name(d2i_X509_NAME(nullptr, &issuerBytes, static_cast<long>(issuer.size())));
    const OpenSSL::Owner<ASN1_INTEGER, ASN1_INTEGER_free> number(
        d2i_ASN1_INTEGER(nullptr, &serialBytes, static_cast<long>(serial.size())));
    ERR_clear_error();
    return name && number && X509_NAME_cmp(name.get(), X509_get_issuer_name(certificate.x509())) == 0 &&
           ASN1_INTEGER_cmp(number.get(), X509_get0_serialNumber(certificate.x509())) == 0;
}

bool hasKeyIdentifier(const Certificate& certificate, std::string_view identifier) {
    const ASN1_OCTET_STRING* own = X509_get0_subject_key_id(certificate.x509());
    return own != nullptr && identifier == std::string_view(reinterpret_cast<const char*>(ASN1_STRING_get0_data(own)),
                                                            static_cast<std::size_t>(ASN1_STRING_length(own)));
}

} // namespace

SignedMessage SignedMessage::parse(std::string_view bytes, const std::string& name) {
    SignedMessage message;
    message.name_ = name;
    BerReader outer(bytes, name);
    BerReader contentInfo = outer.inside(outer.next(BerTag::sequence));
    if (outer.rest().find_first_not_of('\0') != std::string_view::npos) {
        outer.fail("expected only zero bytes behind the message, found others");
    }
    if (contentInfo.nextObjectIdentifier() != signedDataType)
        contentInfo.fail("expected signed data, found another type");
    BerReader content = contentInfo.inside(contentInfo.next(BerTag::context0));
    message.readSignedData(content.next(BerTag::sequence).content);
    return message;
}

void SignedMessage::readSignedData(std::string_view bytes) {
    BerReader reader(bytes, name_);
    reader.next(BerTag::integer);
    reader.next(BerTag::set);
    BerReader encapsulated = reader.inside(reader.next(BerTag::sequence));
    contentType_ = encapsulated.nextObjectIdentifier();
    if (const auto content = encapsulated.nextIf(BerTag::context0)) {
        content_ = encapsulated.inside(*content).nextOctets();
    }
    if (const auto certificates = reader.nextIf(BerTag::context0)) {
        for (BerReader list = reader.inside(*certificates); !list.atEnd();) {
            if (certificates_.size() == maximumCertificates) list.fail("too many certificates");
            certificates_.push_back(Certificate::parse(list.next(BerTag::sequence).whole, name_));
        }
    }
    reader.nextIf(BerTag::context1);
    BerReader signers = reader.inside(reader.next(BerTag::set));
    readSigner(signers.next(BerTag::sequence).content);
    if (!signers.atEnd()) signers.fail("expected one signer, found more");
}

void SignedMessage::readSigner(std::string_view bytes) {
    BerReader reader(bytes, name_);
    reader.next(BerTag::integer);
    if (const auto identifier = reader.nextIf(BerTag::primitiveContext0)) {
        keyIdentifier_ = identifier->content;
    } else {
        BerReader issuerAndSerial = reader.inside(reader.next(BerTag::sequence));
        issuer_ = issuerAndSerial.next(BerTag::sequence).whole;
        serial_ = issuerAndSerial.next(BerTag::integer).whole;
    }
    digestAlgorithm_ = algorithmIdentifier(reader);
    if (const auto attributes = reader.nextIf(BerTag::context0)) {
        rawSignedAttributes_ = attributes->whole;
        signedAttributes_ = readAttributes(attributes->content);
    }
    signatureAlgorithm_ = algorithmIdentifier(reader);
    signatureValue_ = reader.nextOctets();
    if (const auto others = reader.nextIf(BerTag::context1)) unsignedAttributes_ = readAttributes(others->content);
}

std::vector<SignedMessage::Attribute> SignedMessage::readAttributes(std::string_view content) const {
    std::vector<Attribute> attributes;
    for (BerReader reader(content, name_); !reader.atEnd();) {
        BerReader inner = reader.inside(reader.next(BerTag::sequence));
        Attribute attribute{.oid = inner.nextObjectIdentifier(), .values = {}};
        for (BerReader values = inner.inside(inner.next(BerTag::set)); !values.atEnd();) {
            attribute.values.emplace_back(values.next().whole);
        }
        attributes.push_back(std::move(attribute));
    }
    return attributes;
}

std::vector<std::string> SignedMessage::values(const std::vector<Attribute>& attributes, const std::string& oid) const {
    const auto isWanted = [&](const Attribute& attribute) { return attribute.oid == oid; };
    const auto found = std::find_if(attributes.begin(), attributes.end(), isWanted);
    if (found == attributes.end()) return {};
    if (std::any_of(found + 1, attributes.end(), isWanted))
        throw FormatError(name_ + ": the attribute " + oid + " is there twice");
    return found->values;
}

std::vector<std::string> SignedMessage::signedAttribute(const std::string& oid) const {
    return values(signedAttributes_, oid);
}

std::optional<std::string> SignedMessage::timestampToken() const {
    const std::vector<std::string> tokens = values(unsignedAttributes_, timestampAttribute);
    if (tokens.size() > 1) throw FormatError(name_ + ": several timestamps");
    return tokens.empty() ? std::nullopt : std::optional(tokens.front());
}

const Certificate& SignedMessage::signer() const {
    const auto found = std::find_if(certificates_.begin(), certificates_.end(), [&](const Certificate& certificate) {
        return issuer_.empty() ? hasKeyIdentifier(certificate, keyIdentifier_)
                               : isIssuedAs(certificate, issuer_, serial_);
    });
    if (found == certificates_.end()) throw FormatError(name_ + ": the signer's certificate is not in the message");
    return *found;
}

std::string SignedMessage::singleValue(const std::string& oid) const {
    const std::vector<std::string> found = signedAttribute(oid);
    if (found.size() != 1) throw FormatError(name_ + ": expected one value of the signed attribute " + oid);
    return found.front();
}

void SignedMessage::checkSignedAttributes(std::string_view content) const {
    if (BerReader(singleValue(contentTypeAttribute), name_).nextObjectIdentifier() != contentType_) {
        throw FormatError(name_ + ": the signed attributes name another type of content");
    }
    const EVP_MD* digest = find(digestAlgorithms, digestAlgorithm_, name_).digest();
    if (BerReader(singleValue(messageDigestAttribute), name_).nextOctets() != OpenSSL::digest(digest, content)) {
        throw FormatError(name_ + ": the signature is over other content");
    }
}

std::string SignedMessage::signedBytes(std::string_view content) const {
    if (rawSignedAttributes_.empty()) {
        if (contentType_ != dataType) throw FormatError(name_ + ": signed attributes are missing");
        return std::string(content);
    }
    checkSignedAttributes(content);
    // What is signed is a SET; in the message it stands under the tag of its place.
    return static_cast<char>(BerTag::set) + rawSignedAttributes_.substr(1);
}

void SignedMessage::verify(std::string_view content) const {
    const std::string bytes = signedBytes(content);
    const Algorithm& algorithm = find(signatureAlgorithms, signatureAlgorithm_, name_);
    const EVP_MD* digest =
        algorithm.digest != nullptr ? algorithm.digest() : find(digestAlgorithms, digestAlgorithm_, name_).digest();
    X509* const certificate = signer().x509();
    const EVP_PKEY* key = X509_get0_pubkey(certificate);
    if (key == nullptr || EVP_PKEY_get_base_id(key) != algorithm.keyType ||
        !OpenSSL::isSignedBy(certificate, digest, bytes, signatureValue_)) {
        throw FormatError(name_ + ": the signature does not verify");
    }
}

} // namespace corvane
