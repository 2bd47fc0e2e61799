#include "Platform/Formats/PackageSignature/Signer.hpp"

#include "Platform/Trust/MemoryBio.hpp"

#include <openssl/cms.h>
#include <openssl/rsa.h>

namespace corvane::PackageSigning {
namespace {

using Message = OpenSSL::Owner<CMS_ContentInfo, CMS_ContentInfo_free>;
using Moment = OpenSSL::Owner<ASN1_TIME, ASN1_STRING_free>;

template <class Result>
Result require(Result result) {
    return OpenSSL::require(result, "cannot sign");
}

const EVP_MD* implementation(DigestKind digest) {
    return require(EVP_get_digestbyname(std::string(digestName(digest)).c_str()));
}

const unsigned char* octets(std::string_view bytes) { return reinterpret_cast<const unsigned char*>(bytes.data()); }

CMS_SignerInfo* addSigner(CMS_ContentInfo* message, const Signer& signer, DigestKind digest) {
    for (const Certificate& certificate : signer.certificates) require(CMS_add1_cert(message, certificate.x509()));
    CMS_SignerInfo* info =
        require(CMS_add1_signer(message, signer.certificates.front().x509(), signer.key.handle(),
                                implementation(digest), CMS_PARTIAL | CMS_BINARY | CMS_NOSMIMECAP | CMS_NOCERTS));
    const Moment time(require(ASN1_TIME_set(nullptr, signer.signingTime.time_since_epoch().count())));
    require(CMS_signed_add1_attr_by_NID(info, NID_pkcs9_signingTime, ASN1_STRING_type(time.get()), time.get(), -1));
    return info;
}

void addToken(CMS_SignerInfo* info, const std::string& token) {
    // The attribute's value is the token's own DER, and so of the type SEQUENCE.
    require(CMS_unsigned_add1_attr_by_NID(info, NID_id_smime_aa_timeStampToken, V_ASN1_SEQUENCE, token.data(),
                                          static_cast<int>(token.size())));
}

} // namespace

std::string Signer::rsaSignature(DigestKind digest, std::string_view checksum) const {
    const OpenSSL::KeyContext context(require(EVP_PKEY_CTX_new(key.handle(), nullptr)));
    require(EVP_PKEY_sign_init(context.get()) == 1);
    require(EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) == 1);
    require(EVP_PKEY_CTX_set_signature_md(context.get(), implementation(digest)) == 1);
    std::string signature(key.signatureSize(), '\0');
    std::size_t size = signature.size();
    require(EVP_PKEY_sign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &size, octets(checksum),
                          checksum.size()) == 1);
    signature.resize(size);
    return signature;
}

std::string Signer::cmsSignature(DigestKind digest, std::string_view checksum) const {
    constexpr unsigned flags = CMS_PARTIAL | CMS_DETACHED | CMS_BINARY;
    const Message message(require(CMS_sign(nullptr, nullptr, nullptr, nullptr, flags)));
    CMS_SignerInfo* info = addSigner(message.get(), *this, digest);
    require(CMS_final(message.get(), OpenSSL::reading(checksum).get(), nullptr, flags));
    if (timestamp) {
        const ASN1_OCTET_STRING* value = CMS_SignerInfo_get0_signature(info);
        addToken(info, timestamp({reinterpret_cast<const char*>(ASN1_STRING_get0_data(value)),
                                  static_cast<std::size_t>(ASN1_STRING_length(value))},
                                 digest));
    }
    return OpenSSL::written([&](BIO* memory) { return i2d_CMS_bio(memory, message.get()); });
}

} // namespace corvane::PackageSigning
