#include "Platform/Formats/PackageSignature/InstallAssessment.hpp"

#include "Platform/Trust/AppleMarkers.hpp"

namespace corvane {
namespace {

/// Notarization was asked of developers whose account is younger, and of packages signed later.
constexpr std::string_view firstNotarizingDeveloper = "20190407";
constexpr Time firstNotarizedSigning = std::chrono::sys_days(std::chrono::June / 1 / 2019);

/// A package from before notarization was asked for.
bool isLegacy(const PackageSignature& signature) {
    if (!signature.timestamp || *signature.timestamp >= firstNotarizedSigning) return false;
    if (!signature.leaf().hasExtension(AppleMarkers::developerSince)) return true;
    const auto since = signature.leaf().extensionText(AppleMarkers::developerSince);
    return since && *since < firstNotarizingDeveloper;
}

std::string refusalOfSeal(const PackageSignature& signature) {
    switch (signature.seal) {
    case PackageSignature::Seal::absent:
        return "no usable signature";
    case PackageSignature::Seal::intact:
        return "";
    default:
        return signature.problem;
    }
}

std::string refusalOfChain(const PackageSignature& signature) {
    if (signature.chain.expired) return "signed by a certificate that has since expired";
    if (signature.chain.owner == AnchorOwner::administrator) return "not issued by Apple";
    if (signature.chain.owner == AnchorOwner::nobody) return "untrusted certificate, " + signature.chain.problem;
    return "";
}

} // namespace

InstallAssessment InstallAssessment::of(const PackageSignature& signature) {
    const auto refuse = [](std::string why) { return InstallAssessment{false, std::move(why)}; };
    const auto accept = [](const char* rule) { return InstallAssessment{true, rule}; };
    if (std::string why = refusalOfSeal(signature); !why.empty()) return refuse(std::move(why));
    if (std::string why = refusalOfChain(signature); !why.empty()) return refuse(std::move(why));
    if (signature.isAppleSoftware()) return accept("Apple Installer");
    if (signature.leaf().hasExtension(AppleMarkers::appStoreInstaller)) return accept("Mac App Store");
    if (!signature.isDeveloperID()) return refuse("not signed with a Developer ID");
    if (signature.notarized) return accept("Notarized Developer ID");
    if (isLegacy(signature)) return accept("Developer ID");
    const std::string ticket = signature.ticketProblem.empty() ? "no stapled ticket" : signature.ticketProblem;
    return refuse(ticket + "; no online lookup was done");
}

} // namespace corvane
