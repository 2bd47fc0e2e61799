#pragma once

#include "Platform/Trust/Certificate.hpp"

#include <cstddef>
#include <memory>
#include <string>

struct evp_pkey_st;

namespace corvane {

/// A private key. Copies share one immutable key.
class PrivateKey {
  public:
    /// Takes over OpenSSL's key, which is not null.
    explicit PrivateKey(evp_pkey_st* owned);
    /// Reads an unencrypted key. @throws FormatError
    static PrivateKey parse(const std::string& pem, const std::string& name);

    /// Unencrypted PKCS#8.
    std::string pem() const;
    bool isRSA() const;
    /// Length of an RSA signature in bytes.
    std::size_t signatureSize() const;
    bool belongsTo(const Certificate& certificate) const;

    /// For callers of OpenSSL; owned by this key and its copies.
    evp_pkey_st* handle() const { return key_.get(); }

  private:
    std::shared_ptr<evp_pkey_st> key_;
};

/// A private key with its certificate.
struct Identity {
    PrivateKey key;
    Certificate certificate;
    /// Other certificates that came with it, in no special order.
    std::vector<Certificate> chain;

    std::string name() const { return certificate.commonName(); }
    /// SHA-1 of the certificate in hexadecimal: what users and tools call the identity by.
    std::string fingerprint() const { return upperHexadecimal(certificate.sha1()); }
};

} // namespace corvane
