#pragma once

#include "Platform/Formats/CodeBundle/BundleLayout.hpp"
#include "Platform/Formats/CodeSignature/CodeDirectory.hpp"
#include "Platform/Formats/CodeVerification/CodeFailure.hpp"
#include "Platform/Formats/MachO/Image.hpp"
#include "Support/UniqueDescriptor.hpp"

#include <optional>
#include <string>
#include <vector>

namespace corvane::CodeSignature {

/// What is signed as one: a slice of a Mach-O file, or a whole file of another kind.
struct CodeArchitecture {
    /// "arm64"; empty for a file that is no Mach-O file.
    std::string name;
    /// Where the code lies in its file; for a file of another kind the whole of it.
    MachO::Slice slice;
    MachO::Image image;
    /// Of code that has been verified, none: what they say is in its `SignedSlice`.
    Components components;

    bool isMachO() const { return !name.empty(); }
    /// Where the signed bytes must end, from the start of the slice.
    std::uint64_t signingLimit() const { return image.signature ? image.signature->offset : slice.size; }
};

/// A piece of code on disk: a bundle with its main executable, or a file by itself.
struct CodeObject {
    /// A bundle's folder, or the file.
    FileURL url;
    std::optional<BundleLayout> bundle;
    /// The file whose bytes are signed page by page. For a bundle without an executable that is its Info.plist.
    FileURL executable;
    bool isMachO = false;
    /// At least one.
    std::vector<CodeArchitecture> architectures;

    /// As `codesign` describes it: "app bundle with Mach-O universal (x86_64 arm64)".
    std::string format() const;
    /// The bytes of the property list that describes the code: the bundle's, else that in the slice.
    std::optional<std::string> infoPropertyList(const CodeArchitecture& architecture) const;

    /// @throws FileError
    UniqueDescriptor openExecutable() const;

    /// Opens what stands at a path. A bundle's main executable stands for the bundle.
    /// @param version of a framework, in place of the current one
    /// @throws FileError; CodeFailure for what cannot be read as code
    static CodeObject open(const FileURL& path, const std::string& version = "");
};

} // namespace corvane::CodeSignature
