#include "Platform/Formats/CodeSignature/CodeProblem.hpp"
#include "Platform/Formats/CodeVerification/CodeVerification.hpp"
#include "Platform/Trust/AppleMarkers.hpp"

#include <algorithm>

namespace corvane::CodeSignature {
namespace {

/// Bytes of a blob before its content.
constexpr std::size_t blobHeaderSize = 8;

/// The attribute of a certificate's subject that holds the team: OU.
constexpr const char* organizationalUnit = "2.5.4.11";

/// The last number of a component whose digest a directory may hold.
constexpr auto lastSpecialSlot = static_cast<std::uint32_t>(Slot::libraryConstraint);

/// Reading that fails says that the signature is damaged, in the given words.
template <class Read>
auto orFailure(const char* problem, Read read) {
    try {
        return read();
    } catch (const UnsupportedVersion&) {
        throw CodeFailure{.problem = CodeProblem::unsupportedVersion};
    } catch (const FormatError&) {
        throw CodeFailure{.problem = problem};
    } catch (const PropertyList::Error&) {
        throw CodeFailure{.problem = problem};
    }
}

bool isAppleDeveloper(const CertificateChain& chain) {
    return chain.owner == AnchorOwner::apple && (chain.intermediateHasExtension(AppleMarkers::developerAuthority) ||
                                                 chain.intermediateHasExtension(AppleMarkers::developerIDAuthority));
}

/// Any root will do; but an expired certificate needs the absence of a time at which it had expired already, and a
/// timestamp must come from an authority that counts.
void judgeSigner(const CodeSigner& signer, const CodeDirectory& directory) {
    if (!signer.isRooted() || !signer.timestampProblem.empty()) throw CodeFailure{.problem = CodeProblem::notTrusted};
    const bool mustNotExpire = signer.timestamp || (directory.flags() & CodeDirectory::forcedExpiration) != 0;
    if (signer.chain.expired && mustNotExpire) throw CodeFailure{.problem = CodeProblem::expired};
    const auto& team = directory.teamIdentifier();
    if (team && isAppleDeveloper(signer.chain) && team != signer.leaf().subjectField(organizationalUnit)) {
        throw CodeFailure{.problem = CodeProblem::signatureInvalid};
    }
}

std::optional<CodeSigner> verifySigner(SignedSlice& slice, const Components& components, const TrustSettings& trust) {
    if (slice.directory().isAdhoc()) return std::nullopt;
    const std::string* cms = components.find(Slot::signature);
    if (cms == nullptr || cms->empty()) throw CodeFailure{.problem = CodeProblem::signatureFailed};
    CodeSigner signer =
        orFailure(CodeProblem::signatureFailed, [&] { return CodeSigner::verify(*cms, slice.directories, trust); });
    judgeSigner(signer, slice.directory());
    return signer;
}

void checkComponent(const CodeDirectories& directories, Slot slot, const std::string* bytes, const char* problem) {
    const bool isGood = std::all_of(directories.all.begin(), directories.all.end(), [&](const CodeDirectory& each) {
        return bytes != nullptr ? each.matches(slot, *bytes) : !each.specialSlot(slot);
    });
    if (!isGood) throw CodeFailure{.problem = problem};
}

/// Linkers sign like that. It will do for a tool, whose Info.plist is in its pages; a bundle will miss its resources.
bool coverPagesOnly(const CodeDirectories& directories) {
    return std::all_of(directories.all.begin(), directories.all.end(),
                       [](const CodeDirectory& each) { return each.specialSlotCount() == 0; });
}

void checkComponents(const CodeDirectories& directories, const Components& components,
                     const std::optional<std::string>& infoPropertyList) {
    if (!coverPagesOnly(directories)) {
        checkComponent(directories, Slot::infoPropertyList, infoPropertyList ? &*infoPropertyList : nullptr,
                       CodeProblem::infoPropertyListFailed);
    }
    for (std::uint32_t number = 2; number <= lastSpecialSlot; ++number) {
        const auto slot = static_cast<Slot>(number);
        // The sealed resources are the bundle's affair, once for all slices.
        if (slot == Slot::resourceDirectory) continue;
        checkComponent(directories, slot, components.find(slot), CodeProblem::signatureFailed);
    }
    for (const CodeDirectory& directory : directories.all) {
        for (std::uint32_t number = lastSpecialSlot + 1; number <= directory.specialSlotCount(); ++number) {
            if (directory.specialSlot(static_cast<Slot>(number))) {
                throw CodeFailure{.problem = CodeProblem::unsupportedVersion};
            }
        }
    }
}

SignedSlice verifySlice(const CodeObject& object, const CodeArchitecture& architecture, const CodeTrust& trust) {
    const Components& components = architecture.components;
    if (!components.isSigned()) throw CodeFailure{.problem = CodeProblem::notSigned};
    SignedSlice slice;
    slice.architecture = architecture.name;
    slice.directories = orFailure(CodeProblem::signatureInvalid, [&] { return CodeDirectories::of(components); });
    slice.signer = verifySigner(slice, components, trust.settings);
    const auto infoPropertyList =
        orFailure(CodeProblem::infoPropertyListFailed, [&] { return object.infoPropertyList(architecture); });
    checkComponents(slice.directories, components, infoPropertyList);
    slice.isNotarized = trust.tickets.name(slice.directories);
    if (infoPropertyList) {
        slice.infoPropertyList = orFailure(CodeProblem::infoPropertyListFailed,
                                           [&] { return PropertyList::parse(*infoPropertyList, "Info.plist"); });
    }
    if (const std::string* blob = components.find(Slot::entitlements);
        blob != nullptr && blob->size() > blobHeaderSize) {
        slice.entitlements = orFailure(CodeProblem::signatureInvalid, [&] {
            return PropertyList::parse(std::string_view(*blob).substr(blobHeaderSize), "entitlements");
        });
    }
    if (const std::string* blob = components.find(Slot::requirements)) {
        slice.requirements = orFailure(CodeProblem::signatureInvalid, [&] { return RequirementSet::parse(*blob); });
    }
    return slice;
}

} // namespace

RequirementSubject SignedSlice::subject() const {
    return {.identifier = directory().identifier(),
            .cdhashes = directories.cdhashes(),
            .platform = directory().platform(),
            .chain = signer ? &signer->chain : nullptr,
            .infoPropertyList = &infoPropertyList,
            .entitlements = &entitlements,
            .isNotarized = isNotarized};
}

SignedSlice SignedSlice::verify(const CodeObject& object, const CodeArchitecture& architecture,
                                const CodeTrust& trust) try {
    return verifySlice(object, architecture, trust);
} catch (CodeFailure& failure) {
    failure.architecture = architecture.name;
    throw;
}

} // namespace corvane::CodeSignature
