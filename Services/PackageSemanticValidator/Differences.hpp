#pragma once

#include "Models/PipelineModels.hpp"
#include "Support/FileURL.hpp"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

/// How differences are told.
namespace corvane::PackageSemanticValidator {

/// The error that says what recompression changed and shows both sides.
PipelineError mismatch(const std::string& what, const std::string& original, const std::string& rebuilt);

/// "present" or "absent".
std::string presence(bool isPresent);
std::string presence(const std::optional<FileURL>& url);

/// For two long texts, the places where they first differ. Texts that are canonically the same give "different content"
/// twice.
std::pair<std::string, std::string> firstDifferenceSummary(std::string_view left, std::string_view right);

/// The text from 90 characters (extended grapheme clusters) before an index to 90 behind it, on one line, with an
/// ellipsis on each side where more follows.
std::string differenceSnippet(std::string_view text, std::size_t index);

} // namespace corvane::PackageSemanticValidator
