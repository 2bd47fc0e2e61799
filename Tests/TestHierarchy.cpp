#include "Tests/TestHierarchy.hpp"

#include "Platform/Trust/MemoryBio.hpp"

#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/provider.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <utility>
#include <vector>

namespace corvane::TestSupport {

/// What a certificate is asked to be; times are days from now.
struct TestHierarchy::Request {
    std::string label;
    std::string name;
    std::vector<std::pair<std::string, std::string>> extensions;
    long firstDay = -1;
    long lastDay = 1800;
    bool elliptic = false;
};

namespace {

using OpenSSL::Owner;
using OpenSSL::reading;
using OpenSSL::written;
using Key = OpenSSL::Key;
using Certificate = OpenSSL::Certificate;
using BorrowedCertificates = Owner<STACK_OF(X509), +[](STACK_OF(X509) * stack) { sk_X509_free(stack); }>;

template <class Result>
Result require(Result result) {
    return OpenSSL::require(result, "the test hierarchy cannot be made");
}

Key key(const Credential& credential) {
    return Key(require(PEM_read_bio_PrivateKey(reading(credential.key).get(), nullptr, nullptr, nullptr)));
}

Certificate certificate(const Credential& credential) {
    return Certificate(require(PEM_read_bio_X509(reading(credential.certificate).get(), nullptr, nullptr, nullptr)));
}

Key makeKey(bool elliptic) { return Key(require(elliptic ? EVP_EC_gen("P-256") : EVP_RSA_gen(2048))); }

void setSerial(X509* certificate) {
    std::int64_t serial = 0;
    require(RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial));
    require(ASN1_INTEGER_set_int64(X509_get_serialNumber(certificate), serial & INT64_MAX));
}

void setSubject(X509* certificate, const std::string& name, const std::string& owner) {
    X509_NAME* subject = X509_get_subject_name(certificate);
    const std::pair<const char*, std::string> fields[] = {
        {"UID", "TEAM123456"}, {"CN", name}, {"OU", "TEAM123456"}, {"O", owner}, {"C", "US"}};
    for (const auto& [field, value] : fields) {
        const auto* bytes = reinterpret_cast<const unsigned char*>(value.data());
        require(
            X509_NAME_add_entry_by_txt(subject, field, MBSTRING_UTF8, bytes, static_cast<int>(value.size()), -1, 0));
    }
}

void addExtension(X509* certificate, X509* issuer, const std::string& name, const std::string& value) {
    X509V3_CTX context{};
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const Owner<X509_EXTENSION, X509_EXTENSION_free> extension(
        require(X509V3_EXT_conf(nullptr, &context, name.c_str(), value.c_str())));
    require(X509_add_ext(certificate, extension.get(), -1));
}

std::string fingerprint(const X509* certificate, const EVP_MD* digest) {
    unsigned char bytes[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    require(X509_digest(certificate, digest, bytes, &size));
    constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    for (unsigned index = 0; index < size; ++index) text += {digits[bytes[index] >> 4], digits[bytes[index] & 15]};
    return text;
}

Credential credentialOf(const std::string& name, X509* certificate, EVP_PKEY* key) {
    return {.name = name,
            .certificate = written([&](BIO* memory) { return PEM_write_bio_X509(memory, certificate); }),
            .key = written([&](BIO* memory) {
                return PEM_write_bio_PrivateKey(memory, key, nullptr, nullptr, 0, nullptr, nullptr);
            }),
            .sha1 = fingerprint(certificate, EVP_sha1()),
            .sha256 = fingerprint(certificate, EVP_sha256())};
}

const std::vector<std::pair<std::string, std::string>> authorityExtensions = {
    {"basicConstraints", "critical,CA:TRUE"}, {"keyUsage", "critical,keyCertSign,cRLSign"}};

std::vector<std::pair<std::string, std::string>> leafExtensions(const std::string& use, const std::string& marker) {
    std::vector<std::pair<std::string, std::string>> extensions = {{"basicConstraints", "critical,CA:FALSE"},
                                                                   {"keyUsage", "critical,digitalSignature"},
                                                                   {"extendedKeyUsage", "critical," + use}};
    if (!marker.empty()) extensions.emplace_back(marker, "critical,DER:05:00");
    return extensions;
}

const auto installerExtensions = leafExtensions("1.2.840.113635.100.4.13", "1.2.840.113635.100.6.1.14");

} // namespace

TestHierarchy& TestHierarchy::shared() {
    static TestHierarchy hierarchy("Example Works");
    return hierarchy;
}

TestHierarchy& TestHierarchy::stranger() {
    static TestHierarchy hierarchy("Stranger");
    return hierarchy;
}

const Credential& TestHierarchy::credential(const Request& request, const Credential* issuer) {
    const std::lock_guard lock(mutex_);
    if (const auto found = made_.find(request.label); found != made_.end()) return found->second;
    const Key own = makeKey(request.elliptic);
    const Certificate made(require(X509_new()));
    X509* const signer = issuer == nullptr ? made.get() : certificate(*issuer).release();
    const Certificate signerOwner(issuer == nullptr ? nullptr : signer);
    require(X509_set_version(made.get(), X509_VERSION_3));
    setSerial(made.get());
    setSubject(made.get(), request.name, owner_);
    require(X509_set_issuer_name(made.get(), X509_get_subject_name(signer)));
    X509_gmtime_adj(X509_getm_notBefore(made.get()), request.firstDay * 86400);
    X509_gmtime_adj(X509_getm_notAfter(made.get()), request.lastDay * 86400);
    require(X509_set_pubkey(made.get(), own.get()));
    addExtension(made.get(), signer, "subjectKeyIdentifier", "hash");
    for (const auto& [name, value] : request.extensions) addExtension(made.get(), signer, name, value);
    const Key issuerKey = issuer == nullptr ? nullptr : key(*issuer);
    require(X509_sign(made.get(), issuer == nullptr ? own.get() : issuerKey.get(), EVP_sha256()));
    return made_.emplace(request.label, credentialOf(request.name, made.get(), own.get())).first->second;
}

const Credential& TestHierarchy::root() {
    return credential({"root", owner_ + " Root CA", authorityExtensions, -3650, 3650}, nullptr);
}

const Credential& TestHierarchy::intermediate() {
    auto extensions = authorityExtensions;
    extensions.emplace_back("1.2.840.113635.100.6.2.6", "DER:05:00");
    return credential({"intermediate", owner_ + " Certification Authority", extensions, -3650, 3650}, &root());
}

const Credential& TestHierarchy::installer() {
    return credential({"installer", "Developer ID Installer: " + owner_ + " (TEAM123456)", installerExtensions},
                      &intermediate());
}

const Credential& TestHierarchy::renewedInstaller() {
    return credential({"renewed", "Developer ID Installer: " + owner_ + " (TEAM123456)", installerExtensions},
                      &intermediate());
}

const Credential& TestHierarchy::application() {
    return credential({"application", "Developer ID Application: " + owner_ + " (TEAM123456)",
                       leafExtensions("codeSigning", "1.2.840.113635.100.6.1.13")},
                      &intermediate());
}

const Credential& TestHierarchy::expiredInstaller() {
    return credential(
        {"expired", "Developer ID Installer: Former " + owner_ + " (TEAM123456)", installerExtensions, -2190, -365},
        &intermediate());
}

const Credential& TestHierarchy::ellipticInstaller() {
    return credential({.label = "elliptic",
                       .name = "Developer ID Installer: Elliptic " + owner_ + " (TEAM123456)",
                       .extensions = installerExtensions,
                       .elliptic = true},
                      &intermediate());
}

const Credential& TestHierarchy::timestampAuthority() {
    return credential({"timestamps", owner_ + " Timestamp Signer", leafExtensions("timeStamping", "")}, &root());
}

std::string TestHierarchy::pem(const Credential& identity, const std::string& passphrase) {
    std::string keyText = identity.key;
    if (!passphrase.empty()) {
        const Key own = key(identity);
        keyText = written([&](BIO* memory) {
            return PEM_write_bio_PKCS8PrivateKey(memory, own.get(), EVP_aes_256_cbc(), passphrase.data(),
                                                 static_cast<int>(passphrase.size()), nullptr, nullptr);
        });
    }
    return keyText + identity.certificate + intermediate().certificate;
}

std::string TestHierarchy::pkcs12(const Credential& identity, const std::string& passphrase, bool legacy) {
    using Provider = Owner<OSSL_PROVIDER, OSSL_PROVIDER_unload>;
    const Provider oldCiphers(legacy ? require(OSSL_PROVIDER_try_load(nullptr, "legacy", 1)) : nullptr);
    const Key own = key(identity);
    const Certificate leaf = certificate(identity);
    const Certificate issuer = certificate(intermediate());
    const BorrowedCertificates chain(require(sk_X509_new_null()));
    require(sk_X509_push(chain.get(), issuer.get()));
    const int keyCipher = legacy ? NID_pbe_WithSHA1And3_Key_TripleDES_CBC : 0;
    const int certificateCipher = legacy ? NID_pbe_WithSHA1And40BitRC2_CBC : 0;
    const Owner<PKCS12, PKCS12_free> made(
        require(PKCS12_create(passphrase.c_str(), identity.name.c_str(), own.get(), leaf.get(), chain.get(), keyCipher,
                              certificateCipher, 0, 0, 0)));
    return written([&](BIO* memory) { return i2d_PKCS12_bio(memory, made.get()); });
}

} // namespace corvane::TestSupport
