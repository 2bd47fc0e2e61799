#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Minimum system versions: numbers between dots.
namespace corvane::PackageSemanticValidator {

/// @throws PipelineError (`invalidInput`) for anything but decimal numbers with dots between them
std::vector<std::int64_t> versionParts(std::string_view version);

/// The later of two versions, as it was written; of two that are equal, with missing numbers as 0, the original.
/// @throws PipelineError (`invalidInput`)
std::string stricterVersion(const std::optional<std::string>& original, const std::string& requested);

} // namespace corvane::PackageSemanticValidator
