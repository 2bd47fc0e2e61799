#include "Platform/Trust/PrivateKey.hpp"

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Trust/MemoryBio.hpp"

#include <openssl/pem.h>

namespace corvane {

PrivateKey::PrivateKey(evp_pkey_st* owned) : key_(owned, EVP_PKEY_free) {}

PrivateKey PrivateKey::parse(const std::string& pem, const std::string& name) {
    const auto noPassphrase = [](char*, int, int, void*) { return -1; };
    EVP_PKEY* key = PEM_read_bio_PrivateKey(OpenSSL::reading(pem).get(), nullptr, noPassphrase, nullptr);
    if (key == nullptr) throw FormatError(name + ": expected a private key: " + OpenSSL::takeError());
    return PrivateKey(key);
}

std::string PrivateKey::pem() const {
    return OpenSSL::written([this](BIO* memory) {
        return PEM_write_bio_PrivateKey(memory, handle(), nullptr, nullptr, 0, nullptr, nullptr);
    });
}

bool PrivateKey::isRSA() const { return EVP_PKEY_get_base_id(handle()) == EVP_PKEY_RSA; }

std::size_t PrivateKey::signatureSize() const { return static_cast<std::size_t>(EVP_PKEY_get_size(handle())); }

bool PrivateKey::belongsTo(const Certificate& certificate) const {
    const bool fits = X509_check_private_key(certificate.x509(), handle()) == 1;
    OpenSSL::takeError();
    return fits;
}

} // namespace corvane
