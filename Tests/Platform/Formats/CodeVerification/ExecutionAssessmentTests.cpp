#include "Platform/Formats/CodeSignature/CodeProblem.hpp"
#include "Platform/Formats/CodeVerification/ExecutionAssessment.hpp"
#include "Platform/Trust/AppleMarkers.hpp"
#include "Support/FileManager.hpp"
#include "Tests/Platform/Formats/CodeSignature/TestCode.hpp"
#include "Tests/TestSupport.hpp"

#include <sys/stat.h>

#include <filesystem>
#include <functional>

namespace corvane::CodeSignature {
namespace {

using namespace TestSupport;

TEST(ExecutionAssessment, followsTheRules) {
    const Sandbox sandbox;
    const FileURL application = sandbox / "Test.app";
    const World& world = World::shared();
    SignatureShape developer = developerSignature();
    developer.stamper = &world.stamper;
    developer.stampedAt = day(-10);
    SignatureShape store = developer, admin = administratorSignature(), expired = developer;
    const Issued storeLeaf = issue({"Store", leafExtensions("codeSigning", AppleMarkers::appStoreApplication), -10, 10},
                                   &world.developerAuthority);
    store.signer = &storeLeaf;
    store.team = "";
    expired.signer = &world.expiredApplication;
    expired.stamper = nullptr;
    enum class Tickets { all, some, others, none, damaged };
    const struct {
        const char* name;
        SignatureShape signature;
        Tickets tickets;
        ExecutionAssessment::Verdict verdict;
        std::string reason;
        std::function<void(const FileURL&)> change = [](const FileURL&) {};
    } cases[] = {
        {"notarized", developer, Tickets::all, ExecutionAssessment::Verdict::accepted, "Notarized Developer ID"},
        {"store", store, Tickets::none, ExecutionAssessment::Verdict::accepted, "Mac App Store"},
        {"no ticket", developer, Tickets::none, ExecutionAssessment::Verdict::rejected,
         "no stapled ticket; no online lookup was done"},
        {"ticket for some", developer, Tickets::some, ExecutionAssessment::Verdict::rejected,
         "the ticket does not name Test.app (arm64), Test.framework (x86_64), Test.framework (arm64), helper (x86_64), "
         "helper (arm64); no online lookup was done"},
        {"another's ticket", developer, Tickets::others, ExecutionAssessment::Verdict::rejected,
         "the stapled ticket is for another application; no online lookup was done"},
        {"damaged ticket", developer, Tickets::damaged, ExecutionAssessment::Verdict::rejected,
         "the stapled ticket is not genuine, ticket: the signature does not verify; no online lookup was done"},
        {"pipe for a ticket", developer, Tickets::none, ExecutionAssessment::Verdict::rejected,
         "no stapled ticket; no online lookup was done",
         [](const FileURL& bundle) { ::mkfifo((bundle / "Contents/CodeResources").c_str(), 0600); }},
        {"huge ticket", developer, Tickets::all, ExecutionAssessment::Verdict::rejected,
         "the stapled ticket cannot be read, File too large; no online lookup was done",
         [](const FileURL& bundle) { std::filesystem::resize_file(bundle / "Contents/CodeResources", 2 << 20); }},
        {"ad hoc", {}, Tickets::all, ExecutionAssessment::Verdict::rejected, "signed ad hoc"},
        {"administrator's root", admin, Tickets::all, ExecutionAssessment::Verdict::rejected, "not issued by Apple"},
        {"expired", expired, Tickets::all, ExecutionAssessment::Verdict::rejected,
         "signed by a certificate that has since expired"},
        {"not signed", developer, Tickets::all, ExecutionAssessment::Verdict::rejected, "no usable signature",
         [](const FileURL& bundle) { makeTool(bundle / "Contents/MacOS/Test", {.isSigned = false}); }},
        {"pipe in the place of a ticket", developer, Tickets::none, ExecutionAssessment::Verdict::rejected,
         "no stapled ticket; no online lookup was done",
         [](const FileURL& bundle) { ::mkfifo((bundle / "Contents/CodeResources").c_str(), 0600); }},
        {"open structure", developer, Tickets::all, ExecutionAssessment::Verdict::rejected,
         std::string("obsolete resource envelope: ") + CodeProblem::unsealedRoot,
         [](const FileURL& bundle) { FileManager::writeFile(bundle / "b", ""); }},
        {"changed", developer, Tickets::all, ExecutionAssessment::Verdict::broken, CodeProblem::resourceFailed,
         [](const FileURL& bundle) { FileManager::writeFile(bundle / "Contents/Resources/b", ""); }},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        std::filesystem::remove_all(application);
        std::vector<std::string> named = makeApplication(application, {.signature = each.signature});
        if (each.tickets == Tickets::some) named.resize(1);
        if (each.tickets == Tickets::others) named = {std::string(20, 'x')};
        std::string bytes = ticket(world.ticketSigner, {world.ticketAuthority.certificate}, day(-100), 2, named);
        if (each.tickets == Tickets::damaged) bytes[bytes.find("g8tk") + 30] ^= 1;
        if (each.tickets != Tickets::none) FileManager::writeFile(application / "Contents/CodeResources", bytes);
        each.change(application);
        const CodeTrust trust{world.trust(),
                              CodeTickets::of(application, TicketStore(sandbox / "none"), world.trust().appleRoots)};
        const auto assessment = ExecutionAssessment::of(
            CodeVerification::of(application, {.isDeep = true, .isStrict = true}, trust), trust.tickets);
        EXPECT_EQ(assessment.verdict, each.verdict);
        EXPECT_EQ(assessment.reason, each.reason);
    }
}

} // namespace
} // namespace corvane::CodeSignature
