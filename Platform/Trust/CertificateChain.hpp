#pragma once

#include "Platform/Trust/AppleRoots.hpp"
#include "Platform/Trust/Certificate.hpp"

#include <optional>
#include <string>
#include <vector>

namespace corvane {

/// What the leaf of a chain is used for; decides which key usages it must allow.
enum class ChainPurpose { packageSigning, codeSigning, timestamping, notarization };

/// Whom a chain leads to.
enum class AnchorOwner { nobody, apple, administrator };

/// Whose word counts, and when. Passed by every caller; nothing here reads a keychain or a clock.
struct TrustSettings {
    /// Roots that the administrator of this system has added.
    std::vector<Certificate> extraRoots;
    /// The time at which signatures without a trusted timestamp are judged.
    Time now;
    std::vector<TrustAnchor> appleRoots = AppleRoots::pinned();
};

/// A leaf's chain as far as it could be built, and the judgement on it.
struct CertificateChain {
    /// Leaf first, then its issuers, without the anchor. Without an anchor, as many as were found.
    std::vector<Certificate> certificates;
    /// The root at the end, and who put it there.
    std::optional<TrustAnchor> anchor;
    AnchorOwner owner = AnchorOwner::nobody;
    /// A certificate of the chain had expired at the time in question; all else was in order.
    bool expired = false;
    /// Why the chain is not trusted; empty for a good chain and for one that has only expired.
    std::string problem;

    bool isTrusted() const { return owner != AnchorOwner::nobody && problem.empty() && !expired; }
    /// Whether a certificate between leaf and root carries the extension.
    bool intermediateHasExtension(const std::string& oid) const;
};

/// Builds and checks the chain of a leaf at a time: signatures, validity, basic constraints, key usage and critical
/// extensions, of which Apple's known ones are accepted. Only the given intermediates are used, and the root need not
/// be among them: an anchor is a name and a key, its own signature is never looked at. Apple's roots are tried first,
/// then the administrator's. Algorithms are not judged by strength, so SHA-1 of old chains verifies.
CertificateChain evaluateChain(const Certificate& leaf, const std::vector<Certificate>& intermediates,
                               const TrustSettings& settings, Time time, ChainPurpose purpose);

} // namespace corvane
