#pragma once

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/ts.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>
#include <string>
#include <string_view>

/// Owners for what OpenSSL allocates, and its error queue as text. For source files only: headers of this folder keep
/// the library's types to themselves.
namespace corvane::OpenSSL {

template <auto release>
struct Release {
    template <class Object>
    void operator()(Object* object) const {
        release(object);
    }
};

template <class Object, auto release>
using Owner = std::unique_ptr<Object, Release<release>>;

inline void freeCertificateStack(STACK_OF(X509) * stack) { sk_X509_pop_free(stack, X509_free); }
inline void freeBytes(unsigned char* bytes) { OPENSSL_free(bytes); }

using Bio = Owner<BIO, BIO_free_all>;
using Bytes = Owner<unsigned char, freeBytes>;
using Certificate = Owner<X509, X509_free>;
using CertificateStack = Owner<STACK_OF(X509), freeCertificateStack>;
using DigestContext = Owner<EVP_MD_CTX, EVP_MD_CTX_free>;
using Key = Owner<EVP_PKEY, EVP_PKEY_free>;
using KeyContext = Owner<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;
using Name = Owner<X509_NAME, X509_NAME_free>;
using Object = Owner<ASN1_OBJECT, ASN1_OBJECT_free>;

/// The reason of the last failure of this thread, and an empty queue after it.
std::string takeError();

/// Dotted text of an object identifier.
std::string text(const ASN1_OBJECT* object);

/// The digest of some bytes, raw.
std::string digest(const EVP_MD* algorithm, std::string_view bytes);

/// Whether the key's signature over the message, hashed with the algorithm, is good. RSA signatures are PKCS #1 v1.5.
bool isSignedBy(X509* certificate, const EVP_MD* algorithm, std::string_view message, std::string_view signature);

} // namespace corvane::OpenSSL
