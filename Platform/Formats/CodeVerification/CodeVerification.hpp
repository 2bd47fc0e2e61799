#pragma once

#include "Platform/Formats/CodeResources/SealedResources.hpp"
#include "Platform/Formats/CodeSignature/CodeSigner.hpp"
#include "Platform/Formats/CodeSignature/Requirement.hpp"
#include "Platform/Formats/CodeVerification/CodeObject.hpp"
#include "Platform/Formats/CodeVerification/CodeTrust.hpp"
#include "Platform/Formats/CodeVerification/HashWork.hpp"

#include <memory>
#include <optional>
#include <vector>

namespace corvane::CodeSignature {

/// What was found out about the signature of one slice.
struct SignedSlice {
    /// "arm64"; empty for a file that is no Mach-O file.
    std::string architecture;
    CodeDirectories directories;
    /// Absent when the code is signed ad hoc.
    std::optional<CodeSigner> signer;
    /// A ticket names the slice.
    bool isNotarized = false;
    PropertyList::Value infoPropertyList, entitlements;
    std::optional<RequirementSet> requirements;

    const CodeDirectory& directory() const { return directories.best(); }
    /// Refers to this object.
    RequirementSubject subject() const;
    bool meets(const Requirement& requirement) const { return requirement.isMet(subject()); }

    /// Reads the signature of a slice and judges its signer and its other components, without the code's pages.
    /// @throws CodeFailure naming the slice, FileError
    static SignedSlice verify(const CodeObject& object, const CodeArchitecture& architecture, const CodeTrust& trust);
};

/// A piece of code that has been looked at, with the nested code in it.
struct VerifiedCode {
    CodeObject object;
    /// One for each architecture of the object.
    std::vector<SignedSlice> slices;
    std::optional<CodeResources::SealedResources> sealedResources;
    /// What is sealed as such; without a deep look only who signed it was looked at.
    std::vector<std::unique_ptr<VerifiedCode>> nested;
};

/// The answer to whether code is what its signer signed.
struct CodeVerification {
    struct Options {
        /// Nested code is verified like the code itself, and not only its signatures.
        bool isDeep = false;
        /// Nothing may stand in or beside the code that the signature does not cover.
        bool isStrict = false;
        /// What the code must meet besides.
        std::optional<Requirement> requirement{};
    };

    /// Absent when everything is as it was signed.
    std::optional<CodeFailure> failure;
    /// As far as it was looked at; null when the code could not be opened as such.
    std::unique_ptr<VerifiedCode> code;

    /// Verifies all architectures. Digests are computed side by side, while the rest is still being looked at; of
    /// several failures the one is told that comes first in the order of a Mac's checks: signatures, resources and
    /// nested code in the order of their paths, structure.
    /// @throws FileError when there is nothing at the path, or it cannot be read; FormatError beyond a limit
    static CodeVerification of(const FileURL& path, const Options& options, const CodeTrust& trust);
};

} // namespace corvane::CodeSignature
