#pragma once

#include "Platform/Formats/Xar/Archive.hpp"
#include "Platform/Trust/CertificateChain.hpp"

#include <optional>
#include <string>

namespace corvane {

/// The signature of a flat package and the judgement on it: everything that can be computed from the file alone.
struct PackageSignature {
    enum class Seal {
        absent,
        /// The table of contents does not match its checksum.
        contentsChanged,
        /// A file does not match its checksum in the table of contents, or has none.
        fileChanged,
        /// The checksum is not what was signed, or the signature or its timestamp is malformed or does not verify.
        broken,
        intact,
    };

    Seal seal = Seal::absent;
    /// What is wrong with a seal that is neither absent nor intact.
    std::string problem;

    /// The signer's chain, judged at the trusted timestamp, or else now. Only with an intact seal.
    CertificateChain chain;
    /// When the package was signed according to an authority that is trusted, for a chain of Apple's by Apple itself.
    std::optional<Time> timestamp;
    /// A genuine stapled ticket names this package.
    bool notarized = false;
    /// Why a stapled ticket does not count; empty when there is none or it counts.
    std::string ticketProblem;

    const Certificate& leaf() const { return chain.certificates.front(); }
    bool isDeveloperID() const;
    bool isAppleSoftware() const;

    /// Whether the files are compared with their checksums, which reads the whole package. Without that an intact seal
    /// vouches for the table of contents alone.
    enum class Files { checked, unchecked };

    /// Reads and judges. A CMS signature decides where there is one; an RSA signature alone decides for old packages.
    /// @throws FileError when the file cannot be read
    static PackageSignature evaluate(const Xar::Archive& archive, const TrustSettings& settings,
                                     Files files = Files::checked);
};

} // namespace corvane
