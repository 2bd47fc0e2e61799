#pragma once

#include "Platform/Formats/CodeVerification/CodePlan.hpp"

namespace corvane::CodeSignature {

/// Adds the checks of what a piece of code has sealed besides itself: files, links and nested code.
/// @param code its slices have been verified; gets the sealed resources and the nested code
/// @throws CodeFailure, FileError
void planResources(VerifiedCode& code, const CodePlan::Place& place, const PlanSetting& setting, Checks& checks);

/// The attributes that no sealed file may carry, as failures of it.
std::vector<FileNote> detritus(const FileURL& file);

} // namespace corvane::CodeSignature
