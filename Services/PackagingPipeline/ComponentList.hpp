#pragma once

#include "Support/FileURL.hpp"

namespace corvane::Packaging {

/// Pins every bundle of a package builder's component list, nested ones too, to its place. True when the list was
/// rewritten; false when it is empty.
/// @throws PipelineError (`internalError`) for a list of another shape; PropertyList::Error, FileError
bool disableRelocation(const FileURL& componentPlist);

} // namespace corvane::Packaging
