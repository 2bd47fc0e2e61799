#pragma once

#include "Services/PackageComponentDescriptor.hpp"
#include "Support/FileURL.hpp"

#include <stop_token>
#include <vector>

namespace corvane::PackageComponentCatalog {

/// The components of a flat package file, which is expanded into a temporary folder that is gone on return.
/// @throws PipelineError (`invalidInput`) for a file that is no flat package, and what
///         `PackageComponentEditor::components` throws; CancellationError, LaunchError, FileError
std::vector<PackageComponentDescriptor> inspect(const FileURL& packageURL, const std::stop_token& stop = {});

} // namespace corvane::PackageComponentCatalog
