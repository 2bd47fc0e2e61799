#pragma once

#include "Services/PackagingPipeline/Context.hpp"

#include <string>

namespace corvane::Packaging {

/// Checks the trust of a job's input package; the step `verifyInput`.
/// @throws PipelineError (`untrustedInput`) when Gatekeeper rejects it and the job does not allow that;
///         CancellationError, LaunchError
void gatekeeperInstallGate(const Context& context);

/// The end of every flow, the steps `sign` and `verify`: signs the package when the job has an identity, proves that
/// the result can be read, enforces the size limit, and puts it at its final name. Until that last act the output
/// folder stays as it was.
/// @throws PipelineError, CancellationError, LaunchError, FileError
void signAndVerify(const Context& context, const FileURL& unsignedPkg, const FileURL& outputURL);

/// One value of a property-list file, trimmed.
/// @throws PipelineError (`invalidInput`) when it cannot be read; CancellationError, LaunchError
std::string plistValue(const Context& context, const FileURL& url, const std::string& key);

} // namespace corvane::Packaging
