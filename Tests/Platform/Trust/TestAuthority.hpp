#pragma once

#include "Platform/Trust/CertificateChain.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

struct evp_pkey_st;

namespace corvane::TestSupport {

/// A certificate made for a test, and its key.
struct Issued {
    Certificate certificate;
    std::shared_ptr<evp_pkey_st> key;
};

/// The fixed present of these tests; no clock takes part.
constexpr Time present = std::chrono::sys_days(std::chrono::January / 1 / 2026);
constexpr Time day(int number) { return present + std::chrono::days(number); }

/// Names and values in OpenSSL's configuration syntax.
using Extensions = std::vector<std::pair<std::string, std::string>>;
Extensions authorityExtensions(const std::string& marker = "");
Extensions leafExtensions(const std::string& extendedUse, const std::string& marker = "");

/// What a certificate is asked to be.
struct Wanted {
    std::string commonName;
    Extensions extensions;
    /// Validity in days from the present.
    int firstDay = -1000;
    int lastDay = 1000;
    bool isRSA = false;
    /// Signs under the issuer's name in place of the issuer's key: a forgery.
    std::shared_ptr<evp_pkey_st> otherKey = nullptr;
    /// The subject's key, in place of a new one.
    std::shared_ptr<evp_pkey_st> ownKey = nullptr;
    /// 0 for one by chance.
    std::int64_t serial = 0;
};

Issued issue(const Wanted& wanted, const Issued* issuer = nullptr);

/// Two roots in the place of Apple's, an administrator's one, and what hangs from them; made once in a process. All
/// keys are elliptic but those of the first root and of `rsaInstaller`.
struct World {
    Issued root, developerAuthority, installer, expiredInstaller, legacyInstaller, rsaInstaller, stamper;
    Issued application, expiredApplication;
    Issued ticketRoot, ticketAuthority, ticketSigner;
    Issued adminRoot, adminInstaller, adminApplication, adminStamper;

    static const World& shared();
    TrustSettings trust() const;
};

struct MessageShape {
    bool detached = true;
    bool signedAttributes = true;
    const char* digest = "SHA256";
    /// The content is that of a timestamp, and the signer names its own certificate in a signed attribute.
    bool isToken = false;
    bool namesSigner = true;
    /// Adds a timestamp over the signature value, or over something else.
    const Issued* stamper = nullptr;
    Time stampedAt = present;
    bool stampsOtherBytes = false;
    /// More signed attributes: object identifiers, and the values in DER, one behind the other in the order in which
    /// they will stand.
    std::vector<std::pair<std::string, std::string>> attributes = {};
    /// What the clock says, unless given.
    std::optional<Time> signingTime = std::nullopt;
};

/// CMS SignedData as OpenSSL writes it.
std::string signedMessage(const Issued& signer, const std::vector<Certificate>& carried, const std::string& content,
                          const MessageShape& shape = {});
std::string timestampToken(const Issued& signer, const std::vector<Certificate>& carried,
                           const std::string& stampedBytes, Time time, bool namesSigner = true);

/// A signature over a message, RSA or ECDSA.
std::string plainSignature(const Issued& signer, const char* digest, const std::string& message);

/// A notarization ticket.
std::string ticket(const Issued& signer, const std::vector<Certificate>& carried, Time time, int hashType,
                   const std::vector<std::string>& hashes);
/// One with a single record.
std::string ticket(const Issued& signer, const std::vector<Certificate>& carried, Time time, int hashType,
                   const std::string& hash);

std::string littleEndian(std::uint64_t value, int size);

} // namespace corvane::TestSupport
