#include "Stores/JobStore.hpp"
#include "Stores/MainExecutor.hpp"
#include "Support/FileManager.hpp"
#include "Tests/FakeTools.hpp"

#include <cstdlib>
#include <random>
#include <thread>

namespace corvane {
namespace {

using TestSupport::FakeTools;
using Property = JobStore::Property;

/// A store whose main thread is the test's, on a system whose tools all succeed.
class JobStoreTest : public testing::Test {
  protected:
    JobStoreTest() {
        MainExecutor::install(loop);
        for (const char* tool : {"pkgutil", "spctl", "installer"}) fakes.tool(tool, "");
        fakes.tool("productsign", "cp \"$3\" \"$4\"");
        fakes.tool("hdiutil", "exit 1");
        fakes.sandbox().write("in/Tool.pkg", "content");
        FileManager::createDirectory(fakes.sandbox() / "out");
        store.emplace([this](const FileURL& image) { return opened.push_back(image), opens; },
                      PipelineTiming{.firstSigningRetry = std::chrono::milliseconds(0)});
    }

    PipelineConfiguration configuration(PipelineAction action = PipelineAction::signOnly) const {
        return {.action = action,
                .inputURL = fakes.sandbox() / "in/Tool.pkg",
                .outputDirectory = fakes.sandbox() / "out",
                .signingIdentity = "Developer ID Installer: A (T)"};
    }

    /// Runs the main thread until a property has changed and the condition holds.
    void runUntil(const std::function<bool()>& condition) {
        const Observation watch = store->observe([&](Property) {
            if (condition()) loop->stop();
        });
        if (!condition()) loop->run();
    }
    void runToEnd() {
        runUntil([&] { return !store->isRunning(); });
    }

    FakeTools fakes;
    std::shared_ptr<MainRunLoop> loop = std::make_shared<MainRunLoop>();
    std::vector<FileURL> opened;
    bool opens = true;
    std::optional<JobStore> store;
};

TEST_F(JobStoreTest, followsAJobToItsEndAndForgetsIt) {
    EXPECT_EQ(store->phase(), JobStore::Phase(JobStore::Idle{}));
    EXPECT_FALSE(store->openDiskImageForInteraction());
    std::vector<Property> changes;
    const Observation all = store->observe([&](Property property) { changes.push_back(property); });
    store->start(configuration());
    EXPECT_TRUE(store->isRunning());
    EXPECT_EQ(changes, (std::vector{Property::configuration, Property::steps, Property::startedSteps,
                                    Property::finishedSteps, Property::logLines, Property::phase}));
    store->start(configuration(PipelineAction::recompressPkg)); // ignored, as is the next
    store->reset();
    EXPECT_EQ(store->configuration()->action, PipelineAction::signOnly);
    runToEnd();
    EXPECT_EQ(store->phase(), JobStore::Phase(JobStore::Finished{fakes.sandbox() / "out/Tool-signed.pkg"}));
    const std::vector<PipelineStep> steps{PipelineStep::verifyInput, PipelineStep::sign, PipelineStep::verify};
    EXPECT_EQ(store->steps(), steps);
    EXPECT_EQ(store->startedSteps(), std::set(steps.begin(), steps.end()));
    EXPECT_EQ(store->finishedSteps(), store->startedSteps());
    EXPECT_EQ(store->logLines().size(), 2U);

    fakes.tool("spctl", "exit 3");
    store->start(configuration());
    runToEnd();
    EXPECT_EQ(store->phase(),
              JobStore::Phase(JobStore::Failed{"Gatekeeper rejects the input pkg (unsigned or not notarized)"}));
    EXPECT_TRUE(store->finishedSteps().empty());
    store->reset();
    EXPECT_EQ(store->phase(), JobStore::Phase(JobStore::Idle{}));
    EXPECT_TRUE(store->steps().empty() && store->startedSteps().empty() && store->logLines().empty());
    EXPECT_FALSE(store->configuration());
    changes.clear();
    store->cancel();
    store->continueAfterMountInteraction();
    store->continueWithoutTrustedTimestamp();
    EXPECT_TRUE(changes.empty()) << "what stays the same notifies nobody";
}

TEST_F(JobStoreTest, asksForTheImageUntilItIsMounted) {
    std::set<std::string> requests;
    store->start(configuration(PipelineAction::dmgToPkg));
    for (const bool succeeds : {true, false}) {
        opens = succeeds;
        runUntil([&] { return store->mountInteraction().has_value(); });
        EXPECT_EQ(store->mountInteraction()->inputURL, configuration().inputURL);
        EXPECT_EQ(store->mountInteraction()->openedAutomatically, succeeds);
        requests.insert(store->mountInteraction()->id);
        store->continueAfterMountInteraction();
        EXPECT_FALSE(store->mountInteraction());
    }
    runUntil([&] { return store->mountInteraction().has_value(); });
    EXPECT_EQ(requests.size(), 2U);
    EXPECT_FALSE(store->openDiskImageForInteraction());
    EXPECT_EQ(opened.size(), 4U);
    store->cancel();
    EXPECT_FALSE(store->mountInteraction());
    EXPECT_TRUE(store->isRunning()) << "until the job has cleaned up";
    runToEnd();
    EXPECT_EQ(store->phase(), JobStore::Phase(JobStore::Cancelled{}));
}

TEST_F(JobStoreTest, asksBeforeItSignsWithoutATimestamp) {
    fakes.tool("productsign", "test $1 = --timestamp=none && { shift; cp \"$3\" \"$4\"; exit 0; }\n"
                              "echo 'timestamp service is not available' >&2; exit 1");
    store->start(configuration());
    runUntil([&] { return store->untimestampedSigningApprovalRequired(); });
    store->continueWithoutTrustedTimestamp();
    EXPECT_FALSE(store->untimestampedSigningApprovalRequired());
    runToEnd();
    EXPECT_TRUE(std::holds_alternative<JobStore::Finished>(store->phase()));
}

TEST_F(JobStoreTest, letsObserversComeAndGoAndStartJobs) {
    int first = 0;
    int second = 0;
    int jobs = 0;
    Observation other;
    Observation own = store->observe(Property::phase, [&] {
        ++first;
        other = Observation(); // ends one that comes later in this very notification
        if (jobs++ < 2) store->start(configuration());
    });
    other = store->observe(Property::phase, [&] { ++second; });
    store->start(configuration());
    runUntil([&] { return jobs > 2 && !store->isRunning(); });
    EXPECT_EQ(second, 0);
    EXPECT_GE(first, 3);
    EXPECT_TRUE(std::holds_alternative<JobStore::Finished>(store->phase()));
    store.reset();
    own = Observation(); // outlives its store
}

TEST_F(JobStoreTest, callsBackOnceACancelledJobIsGone) {
    bool isDone = false;
    const auto wait = [&] {
        isDone = false;
        store->cancelAndWait([&] {
            isDone = true;
            loop->stop();
        });
        EXPECT_FALSE(isDone);
        loop->run();
        EXPECT_TRUE(isDone);
    };
    wait(); // without a job
    fakes.tool("spctl", "sleep 100");
    store->start(configuration());
    wait();
    EXPECT_EQ(store->phase(), JobStore::Phase(JobStore::Cancelled{}));
    wait(); // with one that has ended
}

TEST_F(JobStoreTest, callsBackAlsoWhenAnotherJobHasBegun) {
    int calls = 0;
    store->start(configuration(PipelineAction::dmgToPkg)); // which waits for its user until it is cancelled
    const Observation again = store->observe(Property::phase, [&] {
        if (std::holds_alternative<JobStore::Cancelled>(store->phase())) store->start(configuration());
    });
    store->cancelAndWait([&] { ++calls; });
    store->cancelAndWait([&] { ++calls; });
    runUntil([&] { return calls == 2 && !store->isRunning(); });
    EXPECT_TRUE(std::holds_alternative<JobStore::Finished>(store->phase()));
}

/// Jobs that are cancelled at any moment, by their users, by who observes them and by the end of their store.
TEST_F(JobStoreTest, survivesCancellationAtAnyMoment) {
    const FileURL usual = FileManager::temporaryDirectory();
    const FileURL temporary = fakes.sandbox() / "temporary";
    FileManager::createDirectory(temporary);
    ASSERT_EQ(::setenv("TMPDIR", temporary.c_str(), 1), 0);
    std::mt19937 random(7); // always the same moments, as far as threads allow
    std::set<std::size_t> ends;
    const auto longest = [&] { // what a job takes when nobody disturbs it
        const auto begin = std::chrono::steady_clock::now();
        store->start(configuration());
        runToEnd();
        return std::chrono::steady_clock::now() - begin;
    }();
    for (int round = 0; round < 60; ++round) {
        JobStore each([](const FileURL&) { return false; });
        const bool isObserverImpatient = random() % 3 == 0;
        const Observation watch = each.observe([&](Property) {
            if (isObserverImpatient && random() % 7 == 0) each.cancel();
        });
        each.start(configuration(round % 2 == 0 ? PipelineAction::signOnly : PipelineAction::dmgToPkg));
        const bool isStoreLeft = random() % 4 == 0;
        std::jthread user([&, delay = longest * (random() % 120) / 100] {
            std::this_thread::sleep_for(delay);
            loop->post([&] {
                if (isStoreLeft) return loop->stop(); // the store goes with its job
                if (random() % 2 == 0) each.cancel();
                each.cancelAndWait([&] { loop->stop(); });
            });
        });
        loop->run();
        if (isStoreLeft) continue;
        EXPECT_FALSE(each.isRunning());
        ends.insert(each.phase().index());
    }
    EXPECT_EQ(ends.size(), 2U) << "some are cancelled, and some finish before";
    EXPECT_TRUE(std::filesystem::is_empty(temporary)) << "jobs leave no folders";
    ::setenv("TMPDIR", usual.c_str(), 1);
}

TEST(MainExecutor, mustBeInstalledFirst) {
    MainExecutor::install(nullptr);
    EXPECT_THROW(JobStore(), std::logic_error);
    EXPECT_THROW(JobStore::shared(), std::logic_error);
    MainExecutor::install(std::make_shared<MainRunLoop>());
    EXPECT_EQ(&JobStore::shared(), &JobStore::shared());
}

} // namespace
} // namespace corvane
