#pragma once

#include "Platform/Formats/CodeVerification/CodeVerification.hpp"

#include <string>

namespace corvane::CodeSignature {

/// Whether Apple's rules for applications accept one, by what can be computed offline.
struct ExecutionAssessment {
    enum class Verdict {
        accepted,
        /// By the rules.
        rejected,
        /// The signature is broken, so no rule was asked.
        broken,
    };

    Verdict verdict = Verdict::rejected;
    /// The rule that accepts, "Notarized Developer ID", or why none does.
    std::string reason;

    /// @param verification a strict and deep one, with these tickets
    static ExecutionAssessment of(const CodeVerification& verification, const CodeTickets& tickets);
};

} // namespace corvane::CodeSignature
