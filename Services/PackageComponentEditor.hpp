#pragma once

#include "Services/PackageComponentDescriptor.hpp"
#include "Support/FileURL.hpp"

#include <vector>

namespace corvane::PackageComponentEditor {

/// The components of a package that was expanded into a folder, ascending by identifier and archive name. With a
/// Distribution file beside them every folder named *.pkg is one; without, the whole folder is a single one.
/// @throws PipelineError (`invalidInput`) for a PackageInfo without an identifier; FileError, XML::Error
std::vector<PackageComponentDescriptor> components(const FileURL& expandedPackage);

/// Takes components out of the Distribution file of an expanded package: the choices that hold one, the lines of those
/// choices, and the references. The components' folders stay. The file is only written when every step has succeeded.
/// @param identifiers each must name exactly one component
/// @return the components, in the order of the identifiers
/// @throws PipelineError (`invalidInput`), and (`internalError`) when a reference would be left; FileError, XML::Error
std::vector<PackageComponentDescriptor> removeComponents(const std::vector<std::string>& identifiers,
                                                         const FileURL& expandedPackage);

} // namespace corvane::PackageComponentEditor
