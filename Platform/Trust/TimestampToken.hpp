#pragma once

#include "Platform/Trust/CertificateChain.hpp"

#include <string>
#include <string_view>

namespace corvane {

/// An RFC 3161 timestamp token that has been checked.
struct TimestampToken {
    /// When the authority saw the signature.
    Time time;
    /// The authority's chain at that time. Whether its owner counts is for the caller to say.
    CertificateChain chain;

    /// Checks a token over some bytes: the imprint, the authority's signature, the signer's certificate as the token
    /// names it, and its chain. A chain that is not trusted is told in the result; everything else throws.
    /// @throws FormatError
    static TimestampToken verify(std::string_view token, std::string_view stampedBytes, const TrustSettings& settings);
};

} // namespace corvane
