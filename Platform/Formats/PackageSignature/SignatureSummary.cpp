#include "Platform/Formats/PackageSignature/SignatureSummary.hpp"

#include "Platform/Trust/AppleMarkers.hpp"
#include "Support/Text.hpp"

#include <vector>

namespace corvane {
namespace {

using Seal = PackageSignature::Seal;

/// Callers read the text behind the last colon of the status line, so no status has a colon in it.
struct Status {
    const char* text;
    bool isTrusted;
};

Status statusOfTrustedSigner(const PackageSignature& signature) {
    if (signature.isDeveloperID()) return {"signed by a developer certificate issued by Apple for distribution", true};
    if (signature.isAppleSoftware()) return {"signed Apple Software", true};
    if (signature.chain.owner == AnchorOwner::apple &&
        signature.chain.intermediateHasExtension(AppleMarkers::developerAuthority)) {
        return {"signed by a developer certificate issued by Apple", true};
    }
    return {"signed by a certificate trusted by this system", true};
}

Status statusOf(const PackageSignature& signature) {
    switch (signature.seal) {
    case Seal::absent:
        return {"no signature", false};
    case Seal::contentsChanged:
    case Seal::fileChanged:
        return {"package is invalid (checksum did not verify)", false};
    case Seal::broken:
        return {"package is invalid (signature did not verify)", false};
    case Seal::intact:
        break;
    }
    if (signature.chain.owner == AnchorOwner::nobody) return {"signed by untrusted certificate", false};
    if (signature.chain.expired) return {"signed by a certificate that has since expired", false};
    return statusOfTrustedSigner(signature);
}

/// Upper-case pairs of digits with blanks between them, on lines of 22 and 10 bytes.
std::string fingerprintLines(const std::string& sha256) {
    constexpr std::size_t bytesInFirstLine = 22;
    constexpr const char* indentation = "           ";
    std::string lines = indentation;
    for (std::size_t index = 0; index < sha256.size(); ++index) {
        if (index == bytesInFirstLine) {
            lines += std::string("\n") + indentation;
        } else if (index > 0) {
            lines += ' ';
        }
        lines += upperHexadecimal(sha256.substr(index, 1));
    }
    return lines + "\n";
}

/// One link of the printed chain. The root's digest is that of its real certificate, which need not be at hand.
struct Link {
    const Certificate& certificate;
    std::string sha256;
};

std::vector<Link> links(const CertificateChain& chain) {
    std::vector<Link> all;
    for (const Certificate& certificate : chain.certificates) all.push_back({certificate, certificate.sha256()});
    const bool leafIsRoot = chain.anchor && chain.anchor->certificate == chain.certificates.front();
    if (chain.anchor && !leafIsRoot) all.push_back({chain.anchor->certificate, chain.anchor->sha256});
    return all;
}

std::string chainText(const CertificateChain& chain) {
    std::string lines = "   Certificate Chain:\n";
    int number = 0;
    for (const Link& link : links(chain)) {
        if (number > 0) lines += "       " + std::string(72, '-') + "\n";
        lines += "    " + std::to_string(++number) + ". " + Text::printable(link.certificate.commonName()) + "\n";
        lines += "       Expires: " + timeText(link.certificate.notAfter()) + "\n";
        lines += "       SHA256 Fingerprint:\n" + fingerprintLines(link.sha256);
    }
    return lines + "\n";
}

std::string text(const std::string& name, const PackageSignature& signature, const char* status) {
    std::string lines = "Package \"" + Text::printable(name) + "\":\n   Status: " + status + "\n";
    if (signature.seal != Seal::intact) return lines;
    if (signature.notarized) lines += "   Notarization: trusted by the Apple notary service\n";
    if (signature.timestamp) lines += "   Signed with a trusted timestamp on: " + timeText(*signature.timestamp) + "\n";
    return lines + chainText(signature.chain);
}

} // namespace

SignatureSummary SignatureSummary::of(const std::string& name, const PackageSignature& signature) {
    const Status status = statusOf(signature);
    return {.status = status.text, .isTrusted = status.isTrusted, .text = corvane::text(name, signature, status.text)};
}

} // namespace corvane
