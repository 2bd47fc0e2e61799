#pragma once

#include "Platform/Formats/CodeVerification/Checks.hpp"
#include "Platform/Formats/CodeVerification/CodeVerification.hpp"

#include <memory>
#include <string>

namespace corvane::CodeSignature {

/// What the plans of a piece of code and of all nested code share.
struct PlanSetting {
    const CodeVerification::Options& options;
    const CodeTrust& trust;
    HashWork& work;
    /// Pieces of code that have been planned.
    std::size_t& count;
};

/// A sealed folder: where links may lead to.
struct SealedScope {
    /// The resource root and the main executable, without links.
    FileURL root, executable;
    CodeResources::ResourceRules rules;
    /// That of the code around this; null for the outermost.
    const SealedScope* outer = nullptr;

    /// Whether a file, given without links, is part of this seal or of one around it.
    bool covers(const FileURL& file) const;
};

/// A piece of code as the plan for it found it. Making the plan reads what is signed and looks at what is on disk; only
/// the digests of files are left to the work, which is done for all nested code at once. A failure while the plan is
/// made ends it: nothing behind that could be told.
struct CodePlan {
    /// Null when it could not be opened as code.
    std::unique_ptr<VerifiedCode> code;
    std::unique_ptr<Checks> checks = std::make_unique<Checks>();

    /// Where the code stands among others.
    struct Place {
        FileURL path;
        /// Of a framework; empty for the current one.
        std::string version{};
        /// What the code must meet; null for nothing.
        const Requirement* requirement = nullptr;
        const SealedScope* outer = nullptr;
        /// 0 for the code that is asked about.
        int depth = 0;
    };

    /// @throws FileError
    static CodePlan of(const Place& place, const PlanSetting& setting);
};

} // namespace corvane::CodeSignature
