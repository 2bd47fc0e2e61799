#include "Services/PackageSemanticValidator/MinimumVersion.hpp"

#include "Models/PipelineModels.hpp"

#include <algorithm>
#include <charconv>

namespace corvane::PackageSemanticValidator {
namespace {

/// A decimal number without a sign; nothing when it is none, or too large.
std::optional<std::int64_t> number(std::string_view digits) {
    std::int64_t value = 0;
    const char* end = digits.data() + digits.size();
    const auto [stopped, error] = std::from_chars(digits.data(), end, value);
    if (digits.empty() || digits.front() == '-' || stopped != end || error != std::errc()) return std::nullopt;
    return value;
}

} // namespace

std::vector<std::int64_t> versionParts(std::string_view version) {
    std::vector<std::int64_t> parts;
    for (std::size_t start = 0; start <= version.size();) {
        const std::size_t end = std::min(version.find('.', start), version.size());
        const auto part = number(version.substr(start, end - start));
        if (!part) throw PipelineError::invalidInput("Invalid minimum macOS version: " + std::string(version));
        parts.push_back(*part);
        start = end + 1;
    }
    return parts;
}

std::string stricterVersion(const std::optional<std::string>& original, const std::string& requested) {
    if (!original) {
        versionParts(requested);
        return requested;
    }
    std::vector<std::int64_t> left = versionParts(*original);
    std::vector<std::int64_t> right = versionParts(requested);
    const std::size_t length = std::max(left.size(), right.size());
    left.resize(length);
    right.resize(length);
    return left < right ? requested : *original;
}

} // namespace corvane::PackageSemanticValidator
