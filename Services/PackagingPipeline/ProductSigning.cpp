#include "Services/PackagingPipeline/ProductSigning.hpp"

#include "Support/FileManager.hpp"
#include "Support/Sleep.hpp"
#include "Support/Text.hpp"

#include <algorithm>
#include <array>

namespace corvane::Packaging {
namespace {

constexpr int retryLimit = 3;

constexpr std::array<std::string_view, 4> timestampPhrases{
    "a timestamp was expected but was not found",
    "timestamp service is not available",
    "timestamp authority is not available",
    "-67882",
};

enum class Timestamp { trusted, none };

void runProductsign(const Context& context, Timestamp timestamp, std::vector<std::string> arguments) {
    const bool trusted = timestamp == Timestamp::trusted;
    if (!trusted) arguments.insert(arguments.begin(), "--timestamp=none");
    CommandResult result = context.run("/usr/bin/productsign", arguments);
    if (result.succeeded()) return;
    throw PipelineError::toolFailed(trusted ? "productsign with trusted timestamp"
                                            : "productsign without trusted timestamp",
                                    result.exitCode, std::move(result.standardError));
}

/// Removes what a failed attempt may have left.
void removeSigningCandidate(const FileURL& url) {
    if (FileManager::fileExists(url)) FileManager::removeItem(url);
}

void waitForApproval(const Context& context) {
    context.log("Trusted timestamp unavailable after the initial attempt and " + std::to_string(retryLimit) +
                " retries; waiting for explicit approval");
    context.emit(PipelineEvents::UntimestampedSigningApprovalRequired{retryLimit});
    context.untimestampedSigningGate->waitForApproval(context.stop);
    context.log("WARNING: User approved signing without a trusted timestamp; the signature is only valid while the "
                "installer certificate remains valid");
}

} // namespace

bool isTimestampAuthorityFailure(const std::exception& error) {
    const auto* failure = dynamic_cast<const PipelineError*>(&error);
    const auto* tool = failure != nullptr ? std::get_if<PipelineError::ToolFailed>(&failure->kind()) : nullptr;
    if (tool == nullptr) return false;
    const std::string text = Text::lowercased(tool->standardError);
    return std::any_of(timestampPhrases.begin(), timestampPhrases.end(),
                       [&](std::string_view phrase) { return text.find(phrase) != std::string::npos; });
}

void signProduct(const Context& context, const std::string& identity, const FileURL& unsignedPkg,
                 const FileURL& signedPkg) {
    const std::vector<std::string> arguments{"--sign", identity, unsignedPkg.string(), signedPkg.string()};
    for (int retries = 0;; ++retries) {
        try {
            return runProductsign(context, Timestamp::trusted, arguments);
        } catch (const PipelineError& error) {
            if (!isTimestampAuthorityFailure(error)) throw;
        }
        if (retries == retryLimit) break;
        context.log("Apple timestamp authority unavailable; retry " + std::to_string(retries + 1) + " of " +
                    std::to_string(retryLimit));
        removeSigningCandidate(signedPkg);
        sleepFor(context.timing.firstSigningRetry * (1 << std::min(retries, 2)), context.stop);
    }
    waitForApproval(context);
    removeSigningCandidate(signedPkg);
    runProductsign(context, Timestamp::none, arguments);
}

} // namespace corvane::Packaging
