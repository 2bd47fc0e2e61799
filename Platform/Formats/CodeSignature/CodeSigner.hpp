#pragma once

#include "Platform/Formats/CodeSignature/CodeDirectory.hpp"
#include "Platform/Trust/CertificateChain.hpp"

#include <optional>
#include <string>

namespace corvane::CodeSignature {

/// Who signed some code, as its CMS says, and the judgement on that.
struct CodeSigner {
    /// Judged at the timestamp, or else now. The root of a chain that is neither Apple's nor the administrator's may be
    /// any certificate in the message that issued itself: `rootTravels` then, and the owner is nobody.
    CertificateChain chain;
    bool rootTravels = false;
    /// According to an authority that counts: for a chain of Apple's, Apple's own.
    std::optional<Time> timestamp;
    /// What the signer claims.
    std::optional<Time> signingTime;
    /// Why a timestamp that is there does not count; empty otherwise.
    std::string timestampProblem;

    const Certificate& leaf() const { return chain.certificates.front(); }
    /// The chain leads to some root and nothing but its age speaks against it.
    bool isRooted() const { return (chain.owner != AnchorOwner::nobody || rootTravels) && chain.problem.empty(); }
    /// Leaf first, the root last, where there is one.
    std::vector<Certificate> certificates() const;

    /// Checks the message over the first directory, and that its signed attributes name the digests of all directories
    /// where they name digests at all.
    /// @throws FormatError for a signature or timestamp that does not verify, and when there are several directories
    /// and the attributes name none
    static CodeSigner verify(const std::string& cms, const CodeDirectories& directories, const TrustSettings& settings);
};

} // namespace corvane::CodeSignature
