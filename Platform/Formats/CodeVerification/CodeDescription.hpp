#pragma once

#include "Platform/Formats/CodeVerification/CodeTrust.hpp"
#include "Support/FileURL.hpp"

#include <string>

namespace corvane::CodeSignature {

/// What `codesign --display` prints of signed code.
struct CodeDescription {
    /// Lines of "Name=value", each ended by a line feed.
    std::string text;

    /// Describes the slice that a present Mac would run, arm64, or else the first one. Who signed is told when the
    /// signature over the directory holds; code and resources are not looked at.
    /// @param trust for the code at the path
    /// @param verbosity 0 the executable; 1 the signature; 2 the chain of its signer as well; 3 the digests too
    /// @throws FileError; CodeFailure for code that is not signed, or damaged
    static CodeDescription of(const FileURL& path, int verbosity, const CodeTrust& trust);
};

} // namespace corvane::CodeSignature
