#pragma once

#include "Services/PackagingPipeline/Context.hpp"

#include <exception>
#include <string>

namespace corvane::Packaging {

/// Signs a package with a trusted timestamp. Where the timestamp service is unavailable it retries three times, waiting
/// longer each time; then it asks for approval at the untimestamped-signing gate and signs without a timestamp.
/// @param identity name of the signing identity
/// @param signedPkg path of the package to write
/// @throws PipelineError (`toolFailed`), CancellationError, LaunchError, FileError
void signProduct(const Context& context, const std::string& identity, const FileURL& unsignedPkg,
                 const FileURL& signedPkg);

/// True for a `toolFailed` whose standard error says that a timestamp could not be had.
bool isTimestampAuthorityFailure(const std::exception& error);

} // namespace corvane::Packaging
