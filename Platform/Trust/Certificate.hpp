#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct x509_st;

namespace corvane {

/// Seconds since 1970 in UTC: the resolution of certificates. A finer one would not reach the year 9999 that they name.
using Time = std::chrono::sys_seconds;

/// "2024-01-03 15:48:26 +0000".
std::string timeText(Time time);

/// An X.509 certificate. Copies share one immutable content, so copying is cheap and safe between threads.
/// Object identifiers are given as dotted text, "1.2.840.113635.100.6.1.14".
class Certificate {
  public:
    /// Reads one certificate, in DER or in PEM (the first of the text).
    /// @param name how errors call the data, for example its path
    /// @throws FormatError
    static Certificate parse(std::string_view derOrPEM, const std::string& name);
    /// Every certificate of a PEM text, in order; other PEM blocks are passed over.
    /// @throws FormatError when a block is damaged or there is no certificate
    static std::vector<Certificate> parseAll(std::string_view pem, const std::string& name);

    const std::string& der() const;
    /// The last common name of the subject; empty when it has none.
    std::string commonName() const;
    /// The same of the issuer's name.
    std::string issuerCommonName() const;
    /// The first value that the subject has for an attribute, "2.5.4.11" for the organizational unit.
    std::optional<std::string> subjectField(const std::string& oid) const;
    /// By name and by signature. A root has issued itself.
    bool isIssuedBy(const Certificate& issuer) const;

    /// Raw digests of the DER: 20 and 32 bytes.
    std::string sha1() const;
    std::string sha256() const;

    Time notBefore() const;
    Time notAfter() const;

    bool hasExtension(const std::string& oid) const;
    /// Whether the extension is there and marked critical.
    bool isCritical(const std::string& oid) const;
    /// The text of an extension whose value is a single ASN.1 string; absent for any other value.
    std::optional<std::string> extensionText(const std::string& oid) const;

    bool isCertificateAuthority() const;
    /// Whether the key usage, where it is stated, lets the key sign data.
    bool allowsSigningData() const;
    bool hasExtendedKeyUsages() const;
    bool hasExtendedKeyUsage(const std::string& oid) const;
    bool hasPolicy(const std::string& oid) const;

    /// For callers of OpenSSL; owned by this certificate and its copies.
    x509_st* x509() const;

    /// The same bytes.
    bool operator==(const Certificate& other) const { return der() == other.der(); }

  private:
    struct Content;
    explicit Certificate(std::shared_ptr<const Content> content) : content_(std::move(content)) {}
    std::shared_ptr<const Content> content_;
};

/// Bytes as hexadecimal digits, in upper case and without separators.
std::string upperHexadecimal(std::string_view bytes);

} // namespace corvane
