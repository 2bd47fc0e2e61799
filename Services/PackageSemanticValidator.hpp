#pragma once

#include "Support/FileURL.hpp"
#include "Support/Text.hpp"

#include <set>
#include <stop_token>
#include <string>

/// The proof that a rebuilt package is the vendor's package: the same layout, components, Distribution, metadata,
/// scripts, payloads and bills of materials, but for what recompression has to write anew.
namespace corvane::PackageSemanticValidator {

/// Names that are the same when they are canonically the same.
using NameSet = std::set<std::string, Text::CanonicalOrder>;

/// What the caller asked of the rebuild and so may differ.
struct Expectations {
    bool modernCompression = true;
    /// With modern compression a component's minimum system version is raised to this one.
    std::string requestedMinOS;
    /// Components that were removed on request.
    NameSet removedComponentArchiveNames;
};

/// Expands the rebuilt package below the work directory, compares it with the vendor's and returns the folder into
/// which it was expanded; whoever owns the work directory removes it.
/// @param originalExpanded the vendor's package, expanded with its payloads
/// @throws PipelineError (`invalidInput`) that shows the first difference, (`toolFailed`) when a tool fails;
/// XML::Error,
///         FileError, LaunchError, CancellationError
FileURL validate(const FileURL& originalExpanded, const FileURL& rebuiltPackage, const Expectations& expectations,
                 const FileURL& workDirectory, const std::stop_token& stop);

} // namespace corvane::PackageSemanticValidator
