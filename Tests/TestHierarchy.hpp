#pragma once

#include <map>
#include <mutex>
#include <string>

namespace corvane::TestSupport {

/// A certificate and its private key, both as PEM text.
struct Credential {
    /// The subject's common name.
    std::string name;
    std::string certificate;
    std::string key;
    /// Of the certificate's DER bytes, upper-case hexadecimal.
    std::string sha1;
    std::string sha256;
};

/// Certificates shaped like those that sign packages, made anew in every process: root, intermediate with the marker
/// of a Developer ID authority, and leaves. Each is made when it is first asked for; keys are RSA with 2048 bits but
/// for `ellipticInstaller`.
class TestHierarchy {
  public:
    /// The hierarchy that a test trusts.
    static TestHierarchy& shared();
    /// One of the same shape and other names, which nobody trusts.
    static TestHierarchy& stranger();

    const Credential& root();
    const Credential& intermediate();
    const Credential& installer();
    const Credential& application();
    /// An installer certificate whose validity ended a year ago.
    const Credential& expiredInstaller();
    /// An installer certificate with a P-256 key.
    const Credential& ellipticInstaller();
    /// A second certificate with the installer's name.
    const Credential& renewedInstaller();
    /// Issued by the root; its only use is time stamps.
    const Credential& timestampAuthority();

    /// Key, certificate and intermediate in one PEM file. A passphrase encrypts the key.
    std::string pem(const Credential& identity, const std::string& passphrase = "");
    /// Key, certificate and intermediate as PKCS#12. `legacy` encrypts with RC2 and triple DES, as old exports do.
    std::string pkcs12(const Credential& identity, const std::string& passphrase, bool legacy = false);

  private:
    struct Request;
    explicit TestHierarchy(std::string owner) : owner_(std::move(owner)) {}
    const Credential& credential(const Request& request, const Credential* issuer);

    std::string owner_;
    std::mutex mutex_;
    std::map<std::string, Credential> made_;
};

} // namespace corvane::TestSupport
