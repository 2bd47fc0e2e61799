#pragma once

#include "Services/PackageComponentDescriptor.hpp"
#include "Support/FileURL.hpp"

#include <vector>

namespace corvane::PackageComponentEditor {

/// The components of a package that was expanded into a folder, ascending by identifier and archive name. With a
/// Distribution file beside them every folder named *.pkg is one; without, the whole folder is a single one.
/// @throws PipelineError (`invalidInput`) for a PackageInfo without an identifier; FileError, XML::Error
std::vector<PackageComponentDescriptor> components(const FileURL& expandedPackage);

} // namespace corvane::PackageComponentEditor
