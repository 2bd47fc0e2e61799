#pragma once

#include "Services/PackageComponentDescriptor.hpp"
#include "Services/PackagingPipeline/Context.hpp"

#include <optional>
#include <string>
#include <vector>

namespace corvane::Packaging {

/// Checks the trust of a job's input package; the step `verifyInput`.
/// @throws PipelineError (`untrustedInput`) when Gatekeeper rejects it and the job does not allow that;
///         CancellationError, LaunchError
void gatekeeperInstallGate(const Context& context);

/// The end of every flow, the steps `sign` and `verify`: signs the package when the job has an identity, proves that
/// the result can be read and, where it was rebuilt, that it is the vendor's, enforces the size limit, and puts it at
/// its final name with its side files. Until that last act the output folder stays as it was.
/// @param recompressBaseline the vendor's package, expanded, when the result was rebuilt from it
/// @throws PipelineError, CancellationError, LaunchError, FileError; XML::Error and PropertyList::Error for what the
///         packages bring
void signAndVerify(const Context& context, const FileURL& unsignedPkg, const FileURL& outputURL,
                   const std::optional<FileURL>& recompressBaseline,
                   const std::vector<PackageComponentDescriptor>& removedComponents);

/// One value of a property-list file, trimmed.
/// @throws PipelineError (`invalidInput`) when it cannot be read; CancellationError, LaunchError
std::string plistValue(const Context& context, const FileURL& url, const std::string& key);

} // namespace corvane::Packaging
