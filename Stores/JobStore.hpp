#pragma once

#include "../Models/PipelineModels.hpp"
#include "../Services/PackagingPipeline.hpp"
#include "Observation.hpp"

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

namespace corvane {

/// Runs one packaging job at a time and holds what a front end shows of it: where the job stands, its steps, its log,
/// and the two questions that it may ask its user. Nothing of the pipeline behind it needs to be known.
///
/// A front end installs a `MainExecutor`, names the portable tools where the system has none (`SystemTool.hpp`), makes
/// a store, observes it and calls `start`. On every notification it shows the property that changed:
///
/// - `steps`, each marked when it is in `startedSteps` and when in `finishedSteps`; `title` gives a step's text. A step
///   that has started and not finished is the one at work, or the one where the job has ended.
/// - `logLines`, at the end of which new ones appear.
/// - `mountInteraction`: while present, a question, answered by `continueAfterMountInteraction` or `cancel`.
/// - `untimestampedSigningApprovalRequired`: while true, a question, answered by `continueWithoutTrustedTimestamp` or
///   `cancel`. A question disappears when it is answered, and when the job ends.
/// - `phase`: `Running` from `start` on, and at last the result: `Finished`, `Failed` or `Cancelled`.
///
/// Before it quits it calls `cancelAndWait`, so that the job can detach its image and remove its temporary folder.
///
/// Everything here belongs to the main thread, that of `MainExecutor::shared()`, which must be installed before a store
/// is made: all operations are called on it and all notifications come on it. No operation waits for the job, save the
/// destructor.
class JobStore {
  public:
    /// The job has succeeded.
    struct Finished {
        /// The finished package. Its side files lie beside it.
        FileURL url;
        bool operator==(const Finished&) const = default;
    };
    /// The job has failed.
    struct Failed {
        /// What to tell the user, one line or several.
        std::string message;
        bool operator==(const Failed&) const = default;
    };
    /// No job yet, or none since `reset`.
    struct Idle {
        bool operator==(const Idle&) const = default;
    };
    /// A job is at work, or waits for an answer, or is about to end after `cancel`.
    struct Running {
        bool operator==(const Running&) const = default;
    };
    /// The job was cancelled, has cleaned up and has left no package.
    struct Cancelled {
        bool operator==(const Cancelled&) const = default;
    };
    /// Where the store stands.
    using Phase = std::variant<Finished, Failed, Idle, Running, Cancelled>;

    /// A question: the image cannot be attached without its user, who has to agree to a licence, say. The user is to
    /// attach it in the system's own way, and then `continueAfterMountInteraction`. When the image is not attached even
    /// then, the question comes again.
    struct MountInteraction {
        /// A new UUID for each request.
        std::string id;
        /// The disk image.
        FileURL inputURL;
        /// Whether the image was opened for the user, so that the system asks what it has to ask; if not, the front end
        /// says so and offers `openDiskImageForInteraction`.
        bool openedAutomatically = false;
        bool operator==(const MountInteraction&) const = default;
    };

    /// What changes, named like the operations that tell the new state.
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

    /// Opens a disk image as the system does when its user opens it; true when that worked. Called on the main thread,
    /// which waits for it; must not throw.
    using DiskImageOpener = std::function<bool(const FileURL& image)>;

    /// Opens images with `/usr/bin/open`. The portable one asks on the terminal that the program was started from, and
    /// returns when that is answered; without a terminal it fails at once.
    /// @throws std::logic_error when no main executor is installed
    JobStore();
    /// With another opener than the system's, for example the toolkit's, and other delays.
    /// @throws std::logic_error as above
    explicit JobStore(DiskImageOpener opener, PipelineTiming timing = {});
    JobStore(const JobStore&) = delete;
    JobStore& operator=(const JobStore&) = delete;
    /// Cancels a running job and waits until it has cleaned up, seconds at worst.
    ~JobStore();

    /// The store of the process, made on first use. @throws std::logic_error as above
    static JobStore& shared();

    // The references below stay good as long as the store; what they show changes with it.

    const Phase& phase() const;
    /// Whether the phase is `Running`.
    bool isRunning() const;
    /// Those of the running or last job, in display order.
    const std::vector<PipelineStep>& steps() const;
    /// Those that have begun.
    const std::set<PipelineStep>& startedSteps() const;
    /// Those that have succeeded.
    const std::set<PipelineStep>& finishedSteps() const;
    /// Every line of progress text of the running or last job, UTF-8. Warnings begin with "WARNING: ".
    const std::vector<std::string>& logLines() const;
    /// That of the running or last job.
    const std::optional<PipelineConfiguration>& configuration() const;
    /// Present while the job waits for its user to mount the disk image.
    const std::optional<MountInteraction>& mountInteraction() const;
    /// True while the job waits for approval to sign without a trusted timestamp.
    bool untimestampedSigningApprovalRequired() const;

    /// Calls back after each change of a property, with the new state in place, for as long as the result lives. Phase
    /// and questions that stay as they are notify nobody. A callback may end any observation, call any operation here,
    /// and do away with the store; it must not throw.
    [[nodiscard]] Observation observe(Property property, std::function<void()> changed);
    /// The same for all properties.
    [[nodiscard]] Observation observe(std::function<void(Property)> changed);

    /// Starts a job; without effect while one runs. What is wrong with the configuration becomes the phase `Failed`.
    /// @throws std::system_error when the system has no threads left; then nothing has changed
    void start(PipelineConfiguration configuration);
    /// Asks the running job to stop, and takes its questions back. The phase follows when the job has cleaned up, or is
    /// the result of a job that was about to end anyway.
    void cancel();
    /// Answers the question `mountInteraction`. An answer to a question that is not open counts for the job's next one;
    /// the same goes for the operation below.
    void continueAfterMountInteraction();
    /// Answers the question `untimestampedSigningApprovalRequired` with yes; `cancel` is the other answer.
    void continueWithoutTrustedTimestamp();
    /// Opens the job's disk image once more; true when that worked.
    bool openDiskImageForInteraction();
    /// Asks the running job to stop and calls back, later and on the main thread, once it has ended and all its events
    /// have arrived here; without a job, soon. A store that goes before does not call back.
    void cancelAndWait(std::function<void()> done);
    /// Forgets the last job: all properties are as in a new store. Without effect while one runs.
    void reset();

  private:
    struct State;
    std::shared_ptr<State> state_;
};

} // namespace corvane
