// A front end on a terminal: runs a job, shows its steps and log lines, asks its questions, tells its result.
#include <corvane/Services/SystemTool.hpp>
#include <corvane/Stores/JobStore.hpp>
#include <corvane/Stores/MainExecutor.hpp>
#include <corvane/Stores/Preferences.hpp>

#include <csignal>
#include <iostream>
#include <thread>

using namespace corvane;
using enum JobStore::Property;

/// Waits for an answer on a thread of its own, since the main thread has to stay free, and obeys it on the main thread.
static void ask(JobStore& store, const std::string& question, void (JobStore::*yes)()) {
    std::cout << question << " (y/n) " << std::flush;
    std::thread([&store, yes, main = MainExecutor::shared()] {
        std::string line;
        std::getline(std::cin, line);
        main->post([&store, answer = line == "y" ? yes : &JobStore::cancel] { (store.*answer)(); });
    }).detach();
}

static void show(JobStore& store, JobStore::Property changed, std::set<PipelineStep>& shown) {
    if (changed == startedSteps) {
        for (const PipelineStep step : store.startedSteps())
            if (shown.insert(step).second) std::cout << "==> " << title(step) << std::endl;
    } else if (changed == logLines && !store.logLines().empty()) {
        std::cout << "    " << store.logLines().back() << std::endl;
    } else if (changed == mountInteraction && store.mountInteraction()) {
        const std::string image = store.mountInteraction()->inputURL.string();
        ask(store, "Is " + image + " attached now?", &JobStore::continueAfterMountInteraction);
    } else if (changed == untimestampedSigningApprovalRequired && store.untimestampedSigningApprovalRequired()) {
        ask(store, "Sign without a trusted timestamp?", &JobStore::continueWithoutTrustedTimestamp);
    }
}

int main(int count, char** arguments) {
    const auto action = count == 4 || count == 5 ? pipelineAction(arguments[1]) : std::nullopt;
    if (!action) return std::puts("Usage: TextFrontEnd dmgToPkg|recompressPkg|signOnly INPUT FOLDER [IDENTITY]"), 64;
    std::ios::sync_with_stdio(false); // a question may be open at the end, and nobody then waits for its line
    sigset_t interruption; // Ctrl-C goes to a thread of its own: this one blocks it, and so do all that begin later
    sigemptyset(&interruption);
    sigaddset(&interruption, SIGINT);
    pthread_sigmask(SIG_BLOCK, &interruption, nullptr);
    const auto loop = std::make_shared<MainRunLoop>();
    MainExecutor::install(loop);
    SystemTool::usePortableTools(CORVANE_TOOLS_FOLDER);
    JobStore store;
    std::thread([&store, loop, interruption] {
        for (int signal = 0; sigwait(&interruption, &signal) == 0;) loop->post([&store] { store.cancel(); });
    }).detach();
    std::set<PipelineStep> shown;
    const Observation observation = store.observe([&](JobStore::Property changed) {
        show(store, changed, shown);
        if (changed == phase && !store.isRunning()) store.cancelAndWait([&] { loop->stop(); });
    });
    store.start({.action = *action,
                 .inputURL = std::filesystem::absolute(arguments[2]),
                 .outputDirectory = std::filesystem::absolute(arguments[3]),
                 .signingIdentity = count == 5 ? std::optional<std::string>(arguments[4]) : std::nullopt,
                 .minOSVersion = std::string(PreferenceKey::defaultMinOSVersion),
                 .allowUntrustedInput = true}); // a warning instead of a failure, for packages of one's own
    loop->run();
    const auto* finished = std::get_if<JobStore::Finished>(&store.phase());
    const auto* failed = std::get_if<JobStore::Failed>(&store.phase());
    std::cout << (finished ? finished->url.string() : failed ? failed->message : "Cancelled") << std::endl;
    return finished ? 0 : 1;
}
