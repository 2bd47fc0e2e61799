#pragma once

#include "Platform/Formats/PackageSignature/PackageSignature.hpp"

#include <string>

namespace corvane {

/// What people and programs read about the signature of a package.
struct SignatureSummary {
    /// One phrase without a colon: callers read what stands behind the last colon of the line that it ends.
    std::string status;
    /// The seal holds and the signer is trusted.
    bool isTrusted = false;
    /// Lines with the status, and for a seal that holds the notarization, the timestamp and the chain.
    std::string text;

    /// @param name of the package's file
    static SignatureSummary of(const std::string& name, const PackageSignature& signature);
};

} // namespace corvane
