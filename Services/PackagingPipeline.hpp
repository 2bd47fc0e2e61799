#pragma once

#include "../Models/PipelineModels.hpp"
#include "../Support/AsyncStream.hpp"
#include "../Support/Task.hpp"
#include "PackagingPipeline/Gates.hpp"

#include <chrono>
#include <memory>

namespace corvane {

/// Delays of a job; tests shorten them.
struct PipelineTiming {
    /// Before the first retry of a timestamped signature; the second and third wait twice and four times as long.
    std::chrono::milliseconds firstSigningRetry{1000};
};

/// Runs one packaging job.
class PackagingPipeline {
  public:
    /// The handle of a started job. Copies refer to the same job; all operations may be called from any thread. When
    /// the last copy goes, the job is cancelled and its clean-up waited for.
    struct Job {
        /// Everything the job does, in order: at last exactly one terminal event, then the end. For one consumer;
        /// dropping it cancels the job.
        AsyncStream<PipelineEvent> events;
        Task worker;
        std::shared_ptr<MountInteractionGate> mountInteractionGate;
        std::shared_ptr<UntimestampedSigningGate> untimestampedSigningGate;

        /// Asks the job to end as `Cancelled` at its next tool run, gate or sleep. Without effect on a finished job.
        void cancel() const;
        /// Answers `MountInteractionRequired`: the user has done what the image needed.
        void continueAfterMountInteraction() const;
        /// Answers `UntimestampedSigningApprovalRequired`: signing without a trusted timestamp is accepted.
        void continueWithoutTrustedTimestamp() const;
        /// Returns when the job's work, its clean-up included, has ended.
        void waitUntilDone() const;
    };

    explicit PackagingPipeline(PipelineConfiguration configuration, PipelineTiming timing = {})
        : configuration_(std::move(configuration)), timing_(timing) {}

    /// Starts the job on a thread of its own and returns at once.
    Job start() const;

  private:
    PipelineConfiguration configuration_;
    PipelineTiming timing_;
};

} // namespace corvane
