#pragma once

#include "Services/PackagingPipeline/Context.hpp"

namespace corvane::Packaging {

/// Builds a component anew from its expanded folder, with its payload compressed as the job asks and no bundle
/// relocatable, and gives it the vendor's metadata and bill of materials back.
/// @param outputPkg the flat component package to write
/// @param hasDistribution the component belongs to a distribution archive
/// @throws PipelineError, XML::Error, PropertyList::Error, FileError, LaunchError, CancellationError
void rebuildComponent(const Context& context, const FileURL& componentDirectory, const FileURL& outputPkg,
                      bool hasDistribution);

} // namespace corvane::Packaging
