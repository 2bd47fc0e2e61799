#pragma once

#include "Support/FileURL.hpp"

#include <string>

/// A component's description and bill of materials. What `mergePackageInfo` lets the rebuild change is exactly what
/// `comparePackageInfo` sets aside or checks.
namespace corvane::PackageSemanticValidator {

/// Puts the vendor's PackageInfo in the place of the generated one, with the generated payload description and
/// generator version, not relocatable, and with modern compression a raised minimum system version.
/// @throws PipelineError (`invalidInput`), XML::Error, FileError
void mergePackageInfo(const FileURL& originalURL, const FileURL& generatedURL, bool modernCompression,
                      const std::string& requestedMinOS);

/// Puts the vendor's bill of materials in the place of the rebuilt component's.
/// @throws PipelineError (`invalidInput`) when only one of them has one; FileError
void preserveVendorBOM(const FileURL& originalComponent, const FileURL& rebuiltComponent);

/// @throws PipelineError (`invalidInput`) that shows the difference; XML::Error, FileError
void comparePackageInfo(const FileURL& original, const FileURL& rebuilt, bool modernCompression,
                        const std::string& requestedMinOS, const std::string& componentName);

} // namespace corvane::PackageSemanticValidator
