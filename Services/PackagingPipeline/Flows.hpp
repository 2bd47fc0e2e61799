#pragma once

#include "Services/PackagingPipeline/Context.hpp"

namespace corvane::Packaging {

/// The flows of the three actions. Each creates the job's work folder, walks through the steps of its action and
/// returns the finished package. @throws PipelineError, CancellationError, FileError, LaunchError; XML::Error and
/// PropertyList::Error for what packages bring
FileURL runSignOnly(Context& context);
FileURL runRecompress(Context& context);
FileURL runDMGToPkg(Context& context);

} // namespace corvane::Packaging
