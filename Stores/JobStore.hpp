#pragma once

#include "Models/PipelineModels.hpp"
#include "Services/PackagingPipeline.hpp"
#include "Stores/Observation.hpp"

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

namespace corvane {

/// Runs one packaging job at a time and holds what a graphical front end shows of it: where the job stands, its steps,
/// its log, and the two questions that it may ask its user.
///
/// Everything here belongs to the main thread, that of `MainExecutor::shared()`, which must be installed before a store
/// is made: all operations are called on it and all notifications come on it. No operation waits for the job.
class JobStore {
  public:
    /// Where the store stands.
    struct Finished {
        /// The finished package.
        FileURL url;
        bool operator==(const Finished&) const = default;
    };
    struct Failed {
        /// What to tell the user.
        std::string message;
        bool operator==(const Failed&) const = default;
    };
    struct Idle {
        bool operator==(const Idle&) const = default;
    };
    struct Running {
        bool operator==(const Running&) const = default;
    };
    struct Cancelled {
        bool operator==(const Cancelled&) const = default;
    };
    using Phase = std::variant<Finished, Failed, Idle, Running, Cancelled>;

    /// A question: the user is to make the system mount the disk image, and then `continueAfterMountInteraction`.
    struct MountInteraction {
        /// A new UUID for each request.
        std::string id;
        /// The disk image.
        FileURL inputURL;
        /// Whether the image could be opened for the user, so that the system asks what it has to ask.
        bool openedAutomatically = false;
        bool operator==(const MountInteraction&) const = default;
    };

    enum class Property {
        phase,
        steps,
        startedSteps,
        finishedSteps,
        logLines,
        configuration,
        mountInteraction,
        untimestampedSigningApprovalRequired,
    };

    /// Opens a disk image as the system does when its user opens it; true when that worked. Called on the main thread.
    using DiskImageOpener = std::function<bool(const FileURL& image)>;

    /// @throws std::logic_error when no main executor is installed
    JobStore();
    /// With another opener than the system's, and other delays.
    explicit JobStore(DiskImageOpener opener, PipelineTiming timing = {});
    JobStore(const JobStore&) = delete;
    JobStore& operator=(const JobStore&) = delete;
    /// Cancels a running job and waits until it has cleaned up.
    ~JobStore();

    /// The store of the process, made on first use. @throws std::logic_error as above
    static JobStore& shared();

    const Phase& phase() const;
    bool isRunning() const;
    /// Those of the running or last job, in display order.
    const std::vector<PipelineStep>& steps() const;
    /// Those that have begun.
    const std::set<PipelineStep>& startedSteps() const;
    /// Those that have succeeded.
    const std::set<PipelineStep>& finishedSteps() const;
    /// Every line of progress text of the running or last job.
    const std::vector<std::string>& logLines() const;
    /// That of the running or last job.
    const std::optional<PipelineConfiguration>& configuration() const;
    /// Present while the job waits for its user to mount the disk image.
    const std::optional<MountInteraction>& mountInteraction() const;
    /// True while the job waits for approval to sign without a trusted timestamp.
    bool untimestampedSigningApprovalRequired() const;

    /// Calls back after each change of a property, with the new state in place. Phase and questions that stay as they
    /// are notify nobody. A callback may end any observation and call any operation here.
    [[nodiscard]] Observation observe(Property property, std::function<void()> changed);
    /// The same for all properties.
    [[nodiscard]] Observation observe(std::function<void(Property)> changed);

    /// Starts a job; without effect while one runs.
    void start(PipelineConfiguration configuration);
    /// Asks the running job to stop, and takes its questions back. The phase follows when the job has cleaned up.
    void cancel();
    /// Answers the question `mountInteraction`.
    void continueAfterMountInteraction();
    /// Answers the question `untimestampedSigningApprovalRequired` with yes; `cancel` is the other answer.
    void continueWithoutTrustedTimestamp();
    /// Opens the job's disk image once more; true when that worked.
    bool openDiskImageForInteraction();
    /// Asks the running job to stop and calls back, later, once it has ended and all its events have arrived here. A
    /// store that goes before does not call back.
    void cancelAndWait(std::function<void()> done);
    /// Forgets the last job; without effect while one runs.
    void reset();

  private:
    struct State;
    std::shared_ptr<State> state_;
};

} // namespace corvane
