#pragma once

#include "Models/PipelineModels.hpp"
#include "Services/CommandRunner.hpp"
#include "Services/PackagingPipeline.hpp"
#include "Services/PackagingPipeline/Gates.hpp"
#include "Support/AsyncStream.hpp"
#include "Support/FileURL.hpp"

#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

/// The inside of a packaging job: what its flows share. Everything here runs on the job's worker thread.
namespace corvane::Packaging {

/// One job's parameters, ends of its channels, and state.
struct Context {
    PipelineConfiguration configuration;
    AsyncStream<PipelineEvent>::Continuation continuation;
    std::shared_ptr<MountInteractionGate> mountInteractionGate;
    std::shared_ptr<UntimestampedSigningGate> untimestampedSigningGate;
    /// The job's private scratch folder. Each flow creates it first; the clean-up removes it.
    FileURL workDirectory;
    /// Where the input disk image is mounted, once it is.
    std::optional<FileURL> mountPoint = std::nullopt;
    /// True when this job attached the disk image itself and so must detach it.
    bool ownsMount = false;
    /// True when an untrusted application was let through: it keeps its quarantine.
    bool keepQuarantine = false;
    /// The job's cancellation.
    std::stop_token stop = {};
    PipelineTiming timing = {};

    /// Never waits and never fails.
    void emit(PipelineEvent event) const { continuation.yield(std::move(event)); }
    void log(std::string message) const { emit(PipelineEvents::Log{std::move(message)}); }
    void begin(PipelineStep step) const { emit(PipelineEvents::StepStarted{step}); }
    void end(PipelineStep step) const { emit(PipelineEvents::StepFinished{step}); }

    /// Runs a tool under the job's cancellation.
    CommandResult run(const std::string& executable, const std::vector<std::string>& arguments) const {
        return CommandRunner::run(executable, arguments, stop);
    }
    /// The same for a tool that has to succeed. @throws PipelineError (`toolFailed`) with the tool's file name
    CommandResult runChecked(const std::string& executable, const std::vector<std::string>& arguments) const {
        return CommandRunner::runChecked(executable, arguments, stop);
    }

    /// What the package builder has to be told of the compression.
    std::vector<std::string> compressionArguments() const {
        if (!configuration.modernCompression) return {};
        return {"--compression", "latest", "--min-os-version", configuration.minOSVersion};
    }

    /// Detaches a disk image that the job attached and removes the work folder; leaves the folder, with a warning, when
    /// the image cannot be detached. Runs to its end whether or not the job was cancelled.
    void cleanUp() const;
};

} // namespace corvane::Packaging
