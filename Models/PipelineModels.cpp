#include "Models/PipelineModels.hpp"

#include "Support/Text.hpp"

#include <utility>

namespace corvane {
namespace {

struct ActionTexts {
    std::string_view rawValue;
    std::string_view title;
    std::string_view systemImage;
    std::string_view detail;
};

/// In the order of the cases.
constexpr std::array<ActionTexts, 3> actionTexts{{
    {"dmgToPkg", "Convert DMG to signed PKG", "shippingbox",
     "Mount, verify trust, stage the app, and build a non-relocatable component pkg."},
    {"recompressPkg", "Recompress + sign PKG", "arrow.down.right.and.arrow.up.left",
     "Expand and rebuild every component with modern compression - smaller pkg."},
    {"signOnly", "Sign PKG only", "signature", "Just productsign the payload untouched - the minimal intervention."},
}};

const ActionTexts& texts(PipelineAction action) { return actionTexts[static_cast<std::size_t>(action)]; }

std::string describe(const PipelineError::Kind& kind) {
    struct Description {
        std::string operator()(const PipelineError::ToolFailed& failure) const {
            const std::string text = failure.tool + " failed (exit " + std::to_string(failure.exitCode) + ")";
            const std::string reason = Text::trimmingWhitespaceAndNewlines(failure.standardError);
            return reason.empty() ? text : text + ": " + reason;
        }
        std::string operator()(const PipelineError::InvalidInput& failure) const { return failure.message; }
        std::string operator()(const PipelineError::UntrustedInput& failure) const { return failure.message; }
        std::string operator()(const PipelineError::InternalError& failure) const { return failure.message; }
    };
    return std::visit(Description{}, kind);
}

} // namespace

std::optional<DropKind> classify(const FileURL& url) { return dropKind(Text::lowercased(pathExtension(url))); }

std::string_view rawValue(DropKind kind) { return kind == DropKind::dmg ? "dmg" : "pkg"; }

std::optional<DropKind> dropKind(std::string_view value) {
    if (value == "dmg") return DropKind::dmg;
    if (value == "pkg") return DropKind::pkg;
    return std::nullopt;
}

std::string_view rawValue(PipelineAction action) { return texts(action).rawValue; }
std::string_view title(PipelineAction action) { return texts(action).title; }
std::string_view systemImage(PipelineAction action) { return texts(action).systemImage; }
std::string_view detail(PipelineAction action) { return texts(action).detail; }

std::optional<PipelineAction> pipelineAction(std::string_view value) {
    for (const PipelineAction action : allPipelineActions) {
        if (rawValue(action) == value) return action;
    }
    return std::nullopt;
}

std::string_view title(PipelineStep step) {
    constexpr std::array<std::string_view, 7> titles{"Verify input trust", "Mount disk image", "Stage payload",
                                                     "Expand package",     "Build package",    "Sign",
                                                     "Verify result"};
    return titles[static_cast<std::size_t>(step)];
}

std::optional<PipelineStep> pipelineStep(std::string_view value) {
    for (const PipelineStep step : allPipelineSteps) {
        if (title(step) == value) return step;
    }
    return std::nullopt;
}

std::vector<PipelineStep> steps(PipelineAction action) {
    using enum PipelineStep;
    switch (action) {
    case PipelineAction::dmgToPkg:
        return {verifyInput, mount, stage, build, sign, verify};
    case PipelineAction::recompressPkg:
        return {verifyInput, expand, build, sign, verify};
    case PipelineAction::signOnly:
        return {verifyInput, sign, verify};
    }
    return {};
}

PipelineError::PipelineError(Kind kind) : kind_(std::move(kind)), description_(describe(kind_)) {}

PipelineError PipelineError::toolFailed(std::string tool, std::int32_t exitCode, std::string standardError) {
    return PipelineError(ToolFailed{std::move(tool), exitCode, std::move(standardError)});
}
PipelineError PipelineError::invalidInput(std::string message) {
    return PipelineError(InvalidInput{std::move(message)});
}
PipelineError PipelineError::untrustedInput(std::string message) {
    return PipelineError(UntrustedInput{std::move(message)});
}
PipelineError PipelineError::internalError(std::string message) {
    return PipelineError(InternalError{std::move(message)});
}

} // namespace corvane
