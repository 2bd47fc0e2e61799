#pragma once

#include "Platform/Formats/Xar/Archive.hpp"
#include "Platform/Trust/TimestampToken.hpp"

#include <optional>
#include <string>
#include <vector>

namespace corvane {

/// Who signed the table of contents of an archive, as the signature itself proves it; nothing is said about trust.
struct PackageSigner {
    /// What the signature is over: the digest of the table of contents as it stands in the heap. That it is the right
    /// one is for the archive to check.
    std::string checksum;
    Certificate certificate;
    /// Everything that the signature brought along, in no certain order.
    std::vector<Certificate> carried;
    /// A timestamp whose token is in order; its chain may be untrusted.
    std::optional<TimestampToken> timestamp;

    /// Verifies the CMS signature, or the RSA signature of an archive without one, over the digest.
    /// @throws FormatError also when there is no digest, or one of a kind that is not signed
    static PackageSigner verify(const Xar::Archive& archive, const TrustSettings& settings);
};

} // namespace corvane
