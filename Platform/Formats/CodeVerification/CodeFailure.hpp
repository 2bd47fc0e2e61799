#pragma once

#include "Support/FileURL.hpp"

#include <string>
#include <vector>

namespace corvane::CodeSignature {

/// One file that made a verification fail.
struct FileNote {
    enum class Kind { added, modified, missing, detritus };

    Kind kind = Kind::modified;
    FileURL file;
    /// Of detritus, the attribute that must not be there.
    std::string attribute{};

    /// As `codesign` words it: "file added: PATH".
    std::string text() const;
};

/// Why code is not what was signed.
struct CodeFailure {
    /// One of `CodeProblem`.
    std::string problem{};
    /// The nested code that failed, the innermost one; empty when it is the code itself.
    FileURL subcomponent{};
    /// The slice that failed, "arm64"; empty when it is none in particular.
    std::string architecture{};
    /// Every file in question, in the order in which they were found.
    std::vector<FileNote> notes{};
};

} // namespace corvane::CodeSignature
