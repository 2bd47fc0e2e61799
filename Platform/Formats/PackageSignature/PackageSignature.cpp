#include "Platform/Formats/PackageSignature/PackageSignature.hpp"

#include "Platform/Formats/Digest.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/NotarizationTicket/NotarizationTicket.hpp"
#include "Platform/Formats/NotarizationTicket/StapledTicket.hpp"
#include "Platform/Formats/PackageSignature/HeapChecksums.hpp"
#include "Platform/Formats/PackageSignature/PackageSigner.hpp"
#include "Platform/Trust/AppleMarkers.hpp"
#include "Platform/Trust/TimestampToken.hpp"

#include <algorithm>

namespace corvane {
namespace {

using Seal = PackageSignature::Seal;

/// Bytes at the end of a package that are searched for a ticket. Real tickets have less than two kilobytes.
constexpr std::uint64_t trailerLimit = std::uint64_t{1} << 20;

/// A seal that does not hold, as an exception within this file.
struct Broken {
    Seal seal;
    std::string problem;
};

template <class Check>
auto sealed(Seal otherwise, Check check) {
    try {
        return check();
    } catch (const FormatError& error) {
        throw Broken{otherwise, error.what()};
    }
}

void checkFiles(const Xar::Archive& archive, bool isSigned) {
    const auto missing = isSigned ? HeapChecksums::Missing::refused : HeapChecksums::Missing::allowed;
    sealed(Seal::fileChanged, [&] { HeapChecksums::verify(archive, missing); });
}

/// Judges the chain at the time of a timestamp that counts, and else at the present.
void judgeChain(PackageSignature& signature, const PackageSigner& signer, const TrustSettings& settings) {
    const auto chainAt = [&](Time time) {
        return evaluateChain(signer.certificate, signer.carried, settings, time, ChainPurpose::packageSigning);
    };
    if (signer.timestamp && signer.timestamp->chain.isTrusted()) {
        signature.chain = chainAt(signer.timestamp->time);
        const bool needsApple = signature.chain.owner == AnchorOwner::apple;
        if (!needsApple || signer.timestamp->chain.owner == AnchorOwner::apple) {
            signature.timestamp = signer.timestamp->time;
            return;
        }
    }
    signature.chain = chainAt(settings.now);
}

std::string trailer(const Xar::Archive& archive) {
    const std::uint64_t length = std::min(trailerLimit, archive.fileSize() - archive.trailerOffset());
    return archive.heapBytes({archive.fileSize() - archive.heapOffset() - length, length}, trailerLimit);
}

void judgeTicket(PackageSignature& signature, const Xar::Archive& archive, const std::string& checksum,
                 const TrustSettings& settings) try {
    const std::string behindArchive = trailer(archive);
    const auto bytes = StapledTicket::find(behindArchive);
    if (!bytes) return;
    const NotarizationTicket ticket = NotarizationTicket::parse(*bytes);
    ticket.verify(settings.appleRoots);
    using HashType = NotarizationTicket::HashType;
    const HashType type = archive.header().checksum == DigestKind::sha1 ? HashType::sha1 : HashType::sha256;
    signature.notarized = ticket.names(type, checksum);
    if (!signature.notarized) signature.ticketProblem = "the stapled ticket is for another package";
} catch (const FormatError& error) {
    signature.ticketProblem = std::string("the stapled ticket is not genuine, ") + error.what();
}

} // namespace

bool PackageSignature::isDeveloperID() const {
    return chain.owner == AnchorOwner::apple && chain.intermediateHasExtension(AppleMarkers::developerIDAuthority) &&
           (leaf().hasExtension(AppleMarkers::developerIDInstaller) ||
            leaf().hasExtension(AppleMarkers::developerIDApplication));
}

bool PackageSignature::isAppleSoftware() const {
    return chain.owner == AnchorOwner::apple && chain.certificates.size() > 1 &&
           chain.certificates[1].commonName() == "Apple Software Update Certification Authority";
}

PackageSignature PackageSignature::evaluate(const Xar::Archive& archive, const TrustSettings& settings,
                                            Files files) try {
    PackageSignature signature;
    const bool isSigned = !archive.contents().signatures.empty();
    sealed(Seal::contentsChanged, [&] { archive.verifyChecksum(); });
    if (files == Files::checked) checkFiles(archive, isSigned);
    if (!isSigned) return signature;
    const PackageSigner signer = sealed(Seal::broken, [&] { return PackageSigner::verify(archive, settings); });
    signature.seal = Seal::intact;
    judgeChain(signature, signer, settings);
    judgeTicket(signature, archive, signer.checksum, settings);
    return signature;
} catch (const Broken& broken) {
    PackageSignature signature;
    signature.seal = broken.seal;
    signature.problem = broken.problem;
    return signature;
}

} // namespace corvane
