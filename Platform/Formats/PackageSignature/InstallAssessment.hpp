#pragma once

#include "Platform/Formats/PackageSignature/PackageSignature.hpp"

#include <string>

namespace corvane {

/// Whether Apple's rules for installer packages accept one, by what can be computed offline.
struct InstallAssessment {
    bool accepted = false;
    /// The rule that accepts, "Notarized Developer ID", or why none does.
    std::string reason;

    /// A seal that is broken in any way is never accepted.
    static InstallAssessment of(const PackageSignature& signature);
};

} // namespace corvane
