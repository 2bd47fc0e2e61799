#pragma once

#include "../Support/FileURL.hpp"

#include <array>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace corvane {

/// The kinds of input that a job starts from.
enum class DropKind { dmg, pkg };

/// Tells the kind by the path's extension, in any letter case; nothing on disk is looked at.
std::optional<DropKind> classify(const FileURL& url);

std::string_view rawValue(DropKind kind);
std::optional<DropKind> dropKind(std::string_view rawValue);

/// The three kinds of job.
enum class PipelineAction { dmgToPkg, recompressPkg, signOnly };

inline constexpr std::array allPipelineActions{PipelineAction::dmgToPkg, PipelineAction::recompressPkg,
                                               PipelineAction::signOnly};

std::string_view rawValue(PipelineAction action);
std::optional<PipelineAction> pipelineAction(std::string_view rawValue);
/// A short label for a front end.
std::string_view title(PipelineAction action);
/// The name of a system symbol image for a graphical front end.
std::string_view systemImage(PipelineAction action);
/// One sentence for a front end.
std::string_view detail(PipelineAction action);

/// The steps that a job walks through.
enum class PipelineStep { verifyInput, mount, stage, expand, build, sign, verify };

inline constexpr std::array allPipelineSteps{PipelineStep::verifyInput, PipelineStep::mount, PipelineStep::stage,
                                             PipelineStep::expand,      PipelineStep::build, PipelineStep::sign,
                                             PipelineStep::verify};

/// The title that a person reads, which is the raw value as well.
std::string_view title(PipelineStep step);
std::optional<PipelineStep> pipelineStep(std::string_view rawValue);

/// The steps of a job of this kind, in display order.
std::vector<PipelineStep> steps(PipelineAction action);

/// The parameters of one job. What may be left out has an initialiser, so that compilers do not miss it.
struct PipelineConfiguration {
    PipelineAction action = PipelineAction::signOnly;
    /// The disk image of `dmgToPkg`, the flat package of the others; an absolute path.
    FileURL inputURL;
    /// An existing folder, an absolute path. Receives the finished package and the side files, which replace files of
    /// the same names.
    FileURL outputDirectory;
    /// Name of the Developer ID Installer identity, one of `IdentityLocator::installerIdentities`; absent leaves the
    /// result unsigned.
    std::optional<std::string> signingIdentity{};
    /// False takes the compression that systems of every age read; packages get larger.
    bool modernCompression = true;
    /// Handed to the package build with modern compression, which needs one: for example "12.0", which
    /// `Stores/Preferences.hpp` suggests.
    std::string minOSVersion;
    /// Turns those trust failures of the input that allow it into logged warnings.
    bool allowUntrustedInput = false;
    /// Writes beside the package, as "NAME.bundles.txt", which applications it installs.
    bool writeBundleInventory = false;
    /// Package identifiers of components to drop during a recompress, as `PackageComponentCatalog::inspect` lists
    /// them; none for the other actions.
    std::vector<std::string> componentIdentifiersToRemove{};
    /// The finished package must have fewer bytes than this.
    std::optional<std::uint64_t> maximumOutputBytesExclusive{};
};

/// What a running job tells its front end.
namespace PipelineEvents {
struct StepStarted {
    PipelineStep step;
};
struct StepFinished {
    PipelineStep step;
};
/// One line of progress text.
struct Log {
    std::string message;
};
/// Signing failed after the initial attempt and `retryCount` retries for want of a trusted timestamp; the job waits at
/// its untimestamped-signing gate.
struct UntimestampedSigningApprovalRequired {
    std::int64_t retryCount;
};
/// Terminal: the finished package.
struct Finished {
    FileURL url;
};
/// Terminal: the error's description.
struct Failed {
    std::string message;
};
/// The disk image can only be mounted with the user's help; the job waits at its mount-interaction gate.
struct MountInteractionRequired {};
/// Terminal.
struct Cancelled {};
} // namespace PipelineEvents

using PipelineEvent =
    std::variant<PipelineEvents::StepStarted, PipelineEvents::StepFinished, PipelineEvents::Log,
                 PipelineEvents::UntimestampedSigningApprovalRequired, PipelineEvents::Finished, PipelineEvents::Failed,
                 PipelineEvents::MountInteractionRequired, PipelineEvents::Cancelled>;

/// A condition of the system's own that ends an operation.
class PipelineError : public std::exception {
  public:
    struct ToolFailed {
        std::string tool; ///< the tool's file name, or a short phrase for the action that failed
        std::int32_t exitCode;
        std::string standardError;
    };
    struct InvalidInput {
        std::string message;
    };
    struct UntrustedInput {
        std::string message;
    };
    struct InternalError {
        std::string message;
    };
    using Kind = std::variant<ToolFailed, InvalidInput, UntrustedInput, InternalError>;

    explicit PipelineError(Kind kind);
    static PipelineError toolFailed(std::string tool, std::int32_t exitCode, std::string standardError);
    static PipelineError invalidInput(std::string message);
    static PipelineError untrustedInput(std::string message);
    static PipelineError internalError(std::string message);

    const Kind& kind() const { return kind_; }
    const std::string& errorDescription() const { return description_; }
    const char* what() const noexcept override { return description_.c_str(); }

  private:
    Kind kind_;
    std::string description_;
};

} // namespace corvane
