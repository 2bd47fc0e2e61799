#pragma once

#include "Services/PackageSemanticValidator/PackageLayout.hpp"

#include <optional>
#include <string>

namespace corvane::PackageSemanticValidator {

/// Compares two Distribution files. Only the installed sizes of embedded components may differ, and the rebuilt ones
/// must be those of the rebuilt components.
/// @throws PipelineError (`invalidInput`) that shows the difference; XML::Error, FileError
void compareDistribution(const std::optional<FileURL>& original, const std::optional<FileURL>& rebuilt,
                         const ComponentFolders& rebuiltComponents);

/// A Distribution as a text in which permitted differences have vanished.
struct CanonicalDistribution {
    std::string xml;
    /// Archive names of the embedded components whose references tell their installed size.
    NameSet componentsWithInstallSize;
};

/// @param components when given, the folders whose sizes the Distribution must tell
/// @throws PipelineError (`invalidInput`), XML::Error, FileError
CanonicalDistribution canonicalDistributionXML(const FileURL& url, const ComponentFolders* components);

} // namespace corvane::PackageSemanticValidator
