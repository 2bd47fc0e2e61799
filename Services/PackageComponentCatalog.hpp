#pragma once

#include "../Support/FileURL.hpp"
#include "PackageComponentDescriptor.hpp"

#include <stop_token>
#include <vector>

namespace corvane::PackageComponentCatalog {

/// The components of a flat package file, ascending by identifier and archive name. The file is expanded into a
/// temporary folder, which is gone on return; that may take a while, so call it on a thread of its own.
/// @param stop ends the call, with CancellationError
/// @throws PipelineError (`invalidInput`) for a file that is no flat package; CancellationError, LaunchError,
/// FileError;
///         std::runtime_error when the package's own XML cannot be read
std::vector<PackageComponentDescriptor> inspect(const FileURL& packageURL, const std::stop_token& stop = {});

} // namespace corvane::PackageComponentCatalog
