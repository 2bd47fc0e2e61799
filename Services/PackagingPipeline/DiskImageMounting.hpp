#pragma once

#include "Services/PackagingPipeline/Context.hpp"

#include <string_view>
#include <vector>

namespace corvane::Packaging {

/// Makes the content of the job's disk image visible in a folder, the step `mount`: attaches it at a private mount
/// point, else takes a read-only mount that exists already, else asks the front end for its user's help until there is
/// one. Creates the work folder, and sets the context's `mountPoint` and `ownsMount`.
/// @throws FileError, LaunchError, CancellationError
void mountDiskImage(Context& context);

/// Where an image is mounted read-only, in the order of the list and without duplicates; only folders that exist.
/// @param hdiutilInfo the list of attached images, a property list; anything else counts as an empty one
std::vector<FileURL> readOnlyMounts(const FileURL& image, std::string_view hdiutilInfo);

} // namespace corvane::Packaging
