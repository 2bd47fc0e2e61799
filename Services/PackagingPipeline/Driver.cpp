#include "Models/PipelineModels.hpp"
#include "Services/PackagingPipeline.hpp"
#include "Services/PackagingPipeline/Context.hpp"
#include "Services/PackagingPipeline/Flows.hpp"
#include "Support/CancellationError.hpp"
#include "Support/FileManager.hpp"
#include "Support/UUID.hpp"

namespace corvane {
namespace {

using Packaging::Context;

FileURL runFlow(Context& context) {
    const PipelineConfiguration& configuration = context.configuration;
    if (configuration.action == PipelineAction::recompressPkg) return Packaging::runRecompress(context);
    if (!configuration.componentIdentifiersToRemove.empty()) {
        throw PipelineError::invalidInput("Component removal only applies to recompress jobs");
    }
    if (configuration.action == PipelineAction::dmgToPkg) return Packaging::runDMGToPkg(context);
    return Packaging::runSignOnly(context);
}

PipelineEvent terminalEvent(Context& context) {
    try {
        return PipelineEvents::Finished{runFlow(context)};
    } catch (const CancellationError&) {
        return PipelineEvents::Cancelled{};
    } catch (const PipelineError& error) {
        return PipelineEvents::Failed{error.errorDescription()};
    } catch (const std::exception& error) {
        return PipelineEvents::Failed{error.what()};
    }
}

/// The whole life of a job. The clean-up's own log lines come before the terminal event, and nothing after it.
void work(Context context) {
    const PipelineEvent terminal = terminalEvent(context);
    context.cleanUp();
    context.emit(terminal);
    context.mountInteractionGate->finish();
    context.untimestampedSigningGate->finish();
    context.continuation.finish();
}

} // namespace

PackagingPipeline::Job PackagingPipeline::start() const {
    auto [events, continuation] = AsyncStream<PipelineEvent>::makeStream();
    const auto mountGate = std::make_shared<MountInteractionGate>();
    const auto signingGate = std::make_shared<UntimestampedSigningGate>();
    const Task worker([context = Context{.configuration = configuration_,
                                         .continuation = continuation,
                                         .mountInteractionGate = mountGate,
                                         .untimestampedSigningGate = signingGate,
                                         .workDirectory = FileManager::temporaryDirectory() / ("corvane-" + makeUUID()),
                                         .timing = timing_}](std::stop_token stop) mutable {
        context.stop = std::move(stop);
        work(std::move(context));
    });
    continuation.setOnTermination([mountGate, signingGate, source = worker.stopSource()]() mutable {
        mountGate->finish();
        signingGate->finish();
        source.request_stop();
    });
    return {events, worker, mountGate, signingGate};
}

void PackagingPipeline::Job::cancel() const {
    mountInteractionGate->finish();
    untimestampedSigningGate->finish();
    worker.cancel();
}

void PackagingPipeline::Job::continueAfterMountInteraction() const { mountInteractionGate->signal(); }

void PackagingPipeline::Job::continueWithoutTrustedTimestamp() const { untimestampedSigningGate->signal(); }

void PackagingPipeline::Job::waitUntilDone() const { worker.wait(); }

} // namespace corvane
