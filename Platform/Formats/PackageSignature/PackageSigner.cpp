#include "Platform/Formats/PackageSignature/PackageSigner.hpp"

#include "Platform/Formats/Digest.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Trust/OpenSSLOwners.hpp"
#include "Platform/Trust/SignedMessage.hpp"

#include <openssl/err.h>
#include <openssl/rsa.h>

#include <algorithm>

namespace corvane {
namespace {

/// Bytes of a signature; what tools write has less than ten kilobytes.
constexpr std::size_t signatureLimit = std::size_t{1} << 20;
constexpr std::size_t maximumCertificates = 32;

/// @throws FormatError for a kind that is too weak to be signed
const EVP_MD* algorithm(DigestKind kind) {
    switch (kind) {
    case DigestKind::sha1:
        return EVP_sha1();
    case DigestKind::sha256:
        return EVP_sha256();
    case DigestKind::sha384:
        return EVP_sha384();
    case DigestKind::sha512:
        return EVP_sha512();
    case DigestKind::md5:
        break;
    }
    throw FormatError("signature: the checksum is of a kind that is not signed");
}

/// The one signature of a style; null when there is none.
const Xar::Signature* find(const Xar::Archive& archive, std::string_view style) {
    const auto& all = archive.contents().signatures;
    const auto isWanted = [&](const Xar::Signature& signature) { return signature.style == style; };
    const auto found = std::find_if(all.begin(), all.end(), isWanted);
    if (found == all.end()) return nullptr;
    if (std::any_of(found + 1, all.end(), isWanted)) {
        throw FormatError("signature: several of the style " + std::string(style));
    }
    return &*found;
}

std::vector<Certificate> carriedCertificates(const Xar::Signature& signature) {
    if (signature.certificates.size() > maximumCertificates) throw FormatError("signature: too many certificates");
    std::vector<Certificate> certificates;
    for (const std::string& der : signature.certificates) {
        certificates.push_back(Certificate::parse(der, "signature"));
    }
    return certificates;
}

PackageSigner verifyMessage(const Xar::Archive& archive, const Xar::Signature& signature, std::string checksum,
                            const TrustSettings& settings) {
    const auto message = SignedMessage::parse(archive.heapBytes(signature.stored, signatureLimit), "signature");
    if (message.content()) throw FormatError("signature: expected a detached one, found content in it");
    message.verify(checksum);
    PackageSigner signer{.checksum = std::move(checksum),
                         .certificate = message.signer(),
                         .carried = message.certificates(),
                         .timestamp = std::nullopt};
    for (const Certificate& certificate : carriedCertificates(signature)) signer.carried.push_back(certificate);
    if (const auto token = message.timestampToken()) {
        signer.timestamp = TimestampToken::verify(*token, message.signatureValue(), settings);
    }
    return signer;
}

/// Whether an RSA signature is over a digest, which is not hashed again.
bool isRSASignature(const Certificate& certificate, const EVP_MD* kind, std::string_view digest,
                    std::string_view value) {
    const auto bytes = [](std::string_view text) { return reinterpret_cast<const unsigned char*>(text.data()); };
    EVP_PKEY* const key = X509_get0_pubkey(certificate.x509());
    if (key == nullptr || EVP_PKEY_get_base_id(key) != EVP_PKEY_RSA) return false;
    const OpenSSL::KeyContext context(EVP_PKEY_CTX_new(key, nullptr));
    const bool good = context && EVP_PKEY_verify_init(context.get()) == 1 &&
                      EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) == 1 &&
                      EVP_PKEY_CTX_set_signature_md(context.get(), kind) == 1 &&
                      EVP_PKEY_verify(context.get(), bytes(value), value.size(), bytes(digest), digest.size()) == 1;
    ERR_clear_error();
    return good;
}

PackageSigner verifyRSA(const Xar::Archive& archive, const Xar::Signature& signature, std::string checksum) {
    std::vector<Certificate> carried = carriedCertificates(signature);
    if (carried.empty()) throw FormatError("signature: it brings no certificate");
    const DigestKind kind = *archive.header().checksum;
    const std::string value = archive.heapBytes(signature.stored, signatureLimit);
    const Certificate leaf = carried.front();
    // Some systems of 2020 and 2021 hashed the SHA-1 checksum once more before they signed it.
    const bool good = isRSASignature(leaf, algorithm(kind), checksum, value) ||
                      (kind == DigestKind::sha1 && isRSASignature(leaf, EVP_sha1(), digest(kind, checksum), value));
    if (!good) throw FormatError("signature: the signature does not verify");
    return {
        .checksum = std::move(checksum), .certificate = leaf, .carried = std::move(carried), .timestamp = std::nullopt};
}

std::string signedChecksum(const Xar::Archive& archive) {
    const auto kind = archive.header().checksum;
    if (!kind || !archive.contents().checksum) {
        throw FormatError("signature: there is no checksum that it could be over");
    }
    algorithm(*kind);
    return archive.heapBytes(archive.contents().checksum->stored, digestSize(*kind));
}

} // namespace

PackageSigner PackageSigner::verify(const Xar::Archive& archive, const TrustSettings& settings) {
    std::string checksum = signedChecksum(archive);
    if (const Xar::Signature* message = find(archive, "CMS")) {
        return verifyMessage(archive, *message, std::move(checksum), settings);
    }
    if (const Xar::Signature* plain = find(archive, "RSA")) return verifyRSA(archive, *plain, std::move(checksum));
    throw FormatError("signature: its style is not known");
}

} // namespace corvane
