// One packaging job, run from a terminal.

#include "Services/CommandRunner.hpp"
#include "Services/IdentityLocator.hpp"
#include "Sources/CorvaneCLIKit/CLIApplication.hpp"
#include "Sources/CorvaneCLIKit/InterruptController.hpp"
#include "Sources/CorvaneCLIKit/InterruptibleWork.hpp"
#include "Support/Text.hpp"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <future>

namespace corvane {
namespace {

PipelineConfiguration configuration(const CLIRunOptions& options) {
    return {.action = options.action,
            .inputURL = options.inputURL,
            .outputDirectory = options.outputDirectory,
            .signingIdentity = options.signingIdentity,
            .modernCompression = options.modernCompression,
            .minOSVersion = options.minOSVersion,
            .allowUntrustedInput = options.allowUntrustedInput,
            .writeBundleInventory = options.writeBundleInventory,
            .componentIdentifiersToRemove = options.componentIdentifiersToRemove,
            .maximumOutputBytesExclusive = options.maximumOutputBytesExclusive};
}

bool isInstallerIdentity(const std::string& name) {
    const auto identities = runInterruptibly(&IdentityLocator::installerIdentities);
    return std::find(identities.begin(), identities.end(), SigningIdentity{name}) != identities.end();
}

} // namespace

/// Renders a job's events one by one and answers its gates. Each call returns the exit status once the job has ended.
class JobRendering {
  public:
    JobRendering(const CLIApplication& application, const PackagingPipeline::Job& job, const CLIRunOptions& options)
        : application_(application), job_(job), options_(options) {}

    using Status = std::optional<std::int32_t>;

    Status operator()(const PipelineEvents::StepStarted& event) {
        return emit("step-started", "step", std::string(title(event.step)), "==> ");
    }
    Status operator()(const PipelineEvents::StepFinished& event) {
        return emit("step-finished", "step", std::string(title(event.step)), nullptr);
    }
    Status operator()(const PipelineEvents::Log& event) { return emit("log", "message", event.message, "    "); }

    Status operator()(const PipelineEvents::UntimestampedSigningApprovalRequired&) {
        if (!options_.allowUntimestampedSignature) {
            return cancelJob("trusted timestamp unavailable after three retries; rerun with "
                             "--allow-untimestamped-signature only if you accept the reduced signature lifetime");
        }
        (*this)(PipelineEvents::Log{
            "WARNING: --allow-untimestamped-signature approved signing without a trusted timestamp"});
        job_.continueWithoutTrustedTimestamp();
        return std::nullopt;
    }

    Status operator()(const PipelineEvents::MountInteractionRequired&) {
        if (!options_.interactive || !application_.isInputTTY_()) {
            return cancelJob("DMG mount requires system interaction; rerun with --interactive in a TTY");
        }
        openImage();
        application_.streams_->standardError(
            "Complete the macOS mount dialog, wait for the volume, then press Return (Ctrl-C to cancel): ");
        if (!application_.readInputLine_()) return cancelJob("stdin closed while waiting for DMG mount confirmation");
        job_.continueAfterMountInteraction();
        return std::nullopt;
    }

    Status operator()(const PipelineEvents::Finished& event) {
        if (options_.json) {
            application_.emitJSON({{"event", "finished"}, {"output", Text::decodedUTF8(event.url.string())}});
        } else {
            application_.streams_->standardOutput(event.url.string() + "\n");
        }
        return 0;
    }

    Status operator()(const PipelineEvents::Failed& event) {
        return application_.emitFailure(event.message, options_.json, 1);
    }

    Status operator()(const PipelineEvents::Cancelled&) {
        if (pendingFailure_) return application_.emitFailure(*pendingFailure_, options_.json, 1);
        constexpr std::int32_t cancelledStatus = 130;
        if (options_.json) {
            application_.emitJSON({{"event", "cancelled"}, {"exitCode", cancelledStatus}});
        } else {
            application_.streams_->standardError("corvane: cancelled\n");
        }
        return cancelledStatus;
    }

  private:
    /// @param prefix what stands before the value in a line of text; none: the event is silent there
    Status emit(const char* event, const char* key, const std::string& value, const char* prefix) const {
        if (options_.json) {
            application_.emitJSON({{"event", event}, {key, Text::decodedUTF8(value)}});
        } else if (prefix != nullptr) {
            application_.streams_->standardError(prefix + value + "\n");
        }
        return std::nullopt;
    }

    /// The job will report `Cancelled`; it is told as this failure.
    Status cancelJob(std::string reason) {
        pendingFailure_ = std::move(reason);
        job_.cancel();
        return std::nullopt;
    }

    /// Whether it worked shows when the job looks for the mounted volume.
    void openImage() const {
        try {
            CommandRunner::run("/usr/bin/open", {options_.inputURL.string()});
        } catch (const std::exception&) {
        }
    }

    const CLIApplication& application_;
    const PackagingPipeline::Job& job_;
    const CLIRunOptions& options_;
    std::optional<std::string> pendingFailure_;
};

std::int32_t CLIApplication::runPipeline(const CLIRunOptions& options) const {
    if (!validateFilesystem(options)) return 66;
    if (options.signingIdentity && !isInstallerIdentity(*options.signingIdentity)) {
        return emitFailure("signing identity not found: " + *options.signingIdentity, options.json, 69);
    }
    const PackagingPipeline::Job job = PackagingPipeline(configuration(options), timing_).start();
    std::promise<void> told;
    InterruptController interrupts([job, isTold = told.get_future().share()](int signal) {
        job.cancel();
        if (signal == SIGINT) return;
        job.waitUntilDone();
        isTold.wait_for(std::chrono::seconds(1)); // longer only when a prompt waits for an answer
        InterruptController::endProcess(signal);
    });
    std::signal(SIGINT, SIG_DFL); // an interrupt counts even where it was ignored
    interrupts.start();
    const std::int32_t status = follow(job, options);
    told.set_value();
    return status;
}

std::int32_t CLIApplication::follow(const PackagingPipeline::Job& job, const CLIRunOptions& options) const {
    JobRendering rendering(*this, job, options);
    while (const auto event = job.events.next()) {
        if (const auto status = std::visit(rendering, *event)) return *status;
    }
    return emitFailure("pipeline ended without a terminal event", options.json, 1);
}

} // namespace corvane
