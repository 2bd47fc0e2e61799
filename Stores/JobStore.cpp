#include "Stores/JobStore.hpp"

#include "Services/CommandRunner.hpp"
#include "Stores/MainExecutor.hpp"
#include "Support/Task.hpp"
#include "Support/UUID.hpp"

#include <initializer_list>

namespace corvane {
namespace {

bool openBySystem(const FileURL& image) {
    try {
        return CommandRunner::run("/usr/bin/open", {image.string()}).succeeded();
    } catch (const std::exception&) {
        return false;
    }
}

/// A started job, and the thread that brings its events to the main one.
struct Run {
    explicit Run(PackagingPipeline::Job started) : job(std::move(started)) {}

    PackagingPipeline::Job job;
    /// Whom to tell when all events have arrived.
    std::vector<std::function<void()>> waiting;
    bool hasEnded = false;
    std::optional<Task> reader;
};

} // namespace

/// Changes its properties first and tells of them then, so that whoever is told sees them all, and may go on to change
/// them again.
struct JobStore::State : std::enable_shared_from_this<State> {
    State(DiskImageOpener imageOpener, PipelineTiming delays)
        : executor(MainExecutor::shared()), opener(std::move(imageOpener)), timing(delays) {}

    const std::shared_ptr<MainExecutor> executor;
    const DiskImageOpener opener;
    const PipelineTiming timing;
    Observers<Property> observers;
    std::shared_ptr<Run> run;

    Phase phase = Idle{};
    std::vector<PipelineStep> steps;
    std::set<PipelineStep> startedSteps;
    std::set<PipelineStep> finishedSteps;
    std::vector<std::string> logLines;
    std::optional<PipelineConfiguration> configuration;
    std::optional<MountInteraction> mountInteraction;
    bool approvalRequired = false;

    bool isRunning() const { return std::holds_alternative<Running>(phase); }

    void notify(std::initializer_list<Property> changed) const {
        for (const Property property : changed) observers.notify(property);
    }

    /// Sets the properties that tell nobody when they stay the same, and all that `change` sets besides.
    void update(Phase newPhase, std::optional<MountInteraction> interaction, bool approval,
                std::initializer_list<Property> besides = {}) {
        const bool hasNewInteraction = mountInteraction != interaction;
        const bool hasNewApproval = approvalRequired != approval;
        const bool hasNewPhase = phase != newPhase;
        phase = std::move(newPhase);
        mountInteraction = std::move(interaction);
        approvalRequired = approval;
        notify(besides);
        if (hasNewInteraction) notify({Property::mountInteraction});
        if (hasNewApproval) notify({Property::untimestampedSigningApprovalRequired});
        if (hasNewPhase) notify({Property::phase});
    }

    void forgetJob(std::optional<PipelineConfiguration> next) {
        steps = next ? corvane::steps(next->action) : std::vector<PipelineStep>();
        configuration = std::move(next);
        startedSteps.clear();
        finishedSteps.clear();
        logLines.clear();
    }
    static constexpr std::initializer_list<Property> forgotten{
        Property::configuration, Property::steps, Property::startedSteps, Property::finishedSteps, Property::logLines};

    void start(PipelineConfiguration asked) {
        const auto next = std::make_shared<Run>(PackagingPipeline(asked, timing).start());
        follow(next);
        replaceRun(next);
        forgetJob(std::move(asked));
        update(Running{}, std::nullopt, false, forgotten);
    }

    /// The last job has had its terminal event, but its end may still be on its way here: who waits for it is told.
    void replaceRun(const std::shared_ptr<Run>& next) {
        const auto last = std::exchange(run, next);
        if (!last) return;
        last->job.waitUntilDone();
        for (auto& done : last->waiting) callBack(std::move(done));
    }

    void callBack(std::function<void()> done) {
        executor->post([store = weak_from_this(), done = std::move(done)] {
            if (const auto state = store.lock()) done();
        });
    }

    /// The thread holds the job, but neither the store nor the run: what it posts finds them, or they are gone.
    void follow(const std::shared_ptr<Run>& started) {
        started->reader.emplace([job = started->job, executor = executor, store = weak_from_this(),
                                 reading = std::weak_ptr(started)](const std::stop_token&) {
            const auto post = [&](std::function<void(State&)> task) {
                executor->post([store, reading, task = std::move(task)] {
                    const auto state = store.lock();
                    const auto current = reading.lock();
                    if (state && current && state->run == current) task(*state);
                });
            };
            while (auto event = job.events.next()) {
                post([event = *std::move(event)](State& state) {
                    std::visit([&](const auto& each) { state.apply(each); }, event);
                });
            }
            job.waitUntilDone();
            post([](State& state) { state.end(); });
        });
    }

    void apply(const PipelineEvents::StepStarted& event) {
        startedSteps.insert(event.step);
        notify({Property::startedSteps});
    }
    void apply(const PipelineEvents::StepFinished& event) {
        finishedSteps.insert(event.step);
        notify({Property::finishedSteps});
    }
    void apply(const PipelineEvents::Log& event) {
        logLines.push_back(event.message);
        notify({Property::logLines});
    }
    void apply(const PipelineEvents::UntimestampedSigningApprovalRequired&) { update(phase, mountInteraction, true); }
    void apply(const PipelineEvents::MountInteractionRequired&) {
        const FileURL image = configuration->inputURL;
        const bool isOpened = opener(image);
        update(phase, MountInteraction{makeUUID(), image, isOpened}, approvalRequired);
    }
    void apply(const PipelineEvents::Finished& event) { update(Finished{event.url}, std::nullopt, false); }
    void apply(const PipelineEvents::Failed& event) { update(Failed{event.message}, std::nullopt, false); }
    void apply(const PipelineEvents::Cancelled&) { update(Cancelled{}, std::nullopt, false); }

    void end() {
        run->hasEnded = true;
        const auto waiting = std::exchange(run->waiting, {});
        if (isRunning()) update(Failed{"The job ended unexpectedly"}, mountInteraction, approvalRequired);
        for (const auto& done : waiting) done();
    }
};

JobStore::JobStore() : JobStore(&openBySystem) {}

JobStore::JobStore(DiskImageOpener opener, PipelineTiming timing)
    : state_(std::make_shared<State>(std::move(opener), timing)) {}

JobStore::~JobStore() {
    if (state_->run) state_->run->job.cancel();
}

JobStore& JobStore::shared() {
    static JobStore store;
    return store;
}

const JobStore::Phase& JobStore::phase() const { return state_->phase; }
bool JobStore::isRunning() const { return state_->isRunning(); }
const std::vector<PipelineStep>& JobStore::steps() const { return state_->steps; }
const std::set<PipelineStep>& JobStore::startedSteps() const { return state_->startedSteps; }
const std::set<PipelineStep>& JobStore::finishedSteps() const { return state_->finishedSteps; }
const std::vector<std::string>& JobStore::logLines() const { return state_->logLines; }
const std::optional<PipelineConfiguration>& JobStore::configuration() const { return state_->configuration; }
const std::optional<JobStore::MountInteraction>& JobStore::mountInteraction() const { return state_->mountInteraction; }
bool JobStore::untimestampedSigningApprovalRequired() const { return state_->approvalRequired; }

Observation JobStore::observe(Property property, std::function<void()> changed) {
    return state_->observers.add(property, [changed = std::move(changed)](Property) { changed(); });
}

Observation JobStore::observe(std::function<void(Property)> changed) {
    return state_->observers.add(std::nullopt, std::move(changed));
}

// Whoever is notified may do away with the store: each operation holds on to its state.

void JobStore::start(PipelineConfiguration configuration) {
    const auto state = state_;
    if (!state->isRunning()) state->start(std::move(configuration));
}

void JobStore::cancel() {
    const auto state = state_;
    if (state->run) state->run->job.cancel();
    state->update(state->phase, std::nullopt, false);
}

void JobStore::continueAfterMountInteraction() {
    const auto state = state_;
    if (state->run) state->run->job.continueAfterMountInteraction();
    state->update(state->phase, std::nullopt, state->approvalRequired);
}

void JobStore::continueWithoutTrustedTimestamp() {
    const auto state = state_;
    if (state->run) state->run->job.continueWithoutTrustedTimestamp();
    state->update(state->phase, state->mountInteraction, false);
}

bool JobStore::openDiskImageForInteraction() {
    return state_->configuration && state_->opener(state_->configuration->inputURL);
}

void JobStore::cancelAndWait(std::function<void()> done) {
    const auto& run = state_->run;
    if (!run || run->hasEnded) {
        state_->callBack(std::move(done));
        return;
    }
    run->job.cancel();
    run->waiting.push_back(std::move(done));
}

void JobStore::reset() {
    const auto state = state_;
    if (state->isRunning()) return;
    state->forgetJob(std::nullopt);
    state->update(Idle{}, std::nullopt, false, State::forgotten);
}

} // namespace corvane
