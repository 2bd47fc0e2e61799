#pragma once

#include "Platform/Formats/Digest.hpp"
#include "Platform/Trust/PrivateKey.hpp"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::PackageSigning {

/// Who signs, and how.
struct Signer {
    /// An RSA key.
    PrivateKey key;
    /// Those that travel with the signature: the key's own first, then its issuers up to the root where it is known.
    std::vector<Certificate> certificates;
    /// When the signer says it signed.
    Time signingTime;
    /// Gets a trusted timestamp's token for a signature value; empty for none. What it throws passes through.
    std::function<std::string(std::string_view signatureValue, DigestKind digest)> timestamp = {};

    /// The RSA signature of a table of contents. @param checksum the digest of the table, which is not hashed again
    std::string rsaSignature(DigestKind digest, std::string_view checksum) const;
    /// The CMS signature: detached, over the checksum's bytes as content, the timestamp's token within.
    std::string cmsSignature(DigestKind digest, std::string_view checksum) const;
};

} // namespace corvane::PackageSigning
