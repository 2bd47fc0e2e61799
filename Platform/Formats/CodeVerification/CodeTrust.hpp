#pragma once

#include "Platform/Formats/CodeVerification/CodeTickets.hpp"
#include "Platform/Trust/CertificateChain.hpp"

namespace corvane::CodeSignature {

/// Whose word counts about some code.
struct CodeTrust {
    TrustSettings settings;
    CodeTickets tickets;

    /// The roots in the user's keychain and Apple's, the present, and the tickets for the code at a path.
    /// @throws FileError, FormatError
    static CodeTrust ofUser(const FileURL& path);
};

} // namespace corvane::CodeSignature
