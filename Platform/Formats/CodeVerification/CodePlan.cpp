#include "Platform/Formats/CodeVerification/CodePlan.hpp"

#include "Platform/Formats/CodeResources/ResourceScan.hpp"
#include "Platform/Formats/CodeSignature/CodeProblem.hpp"
#include "Platform/Formats/CodeVerification/ResourcePlan.hpp"

#include <algorithm>

namespace corvane::CodeSignature {
namespace {

/// Nested code is followed as far as this: much deeper than any real application goes.
constexpr int depthLimit = 64;

/// Most pieces of code in one, each counted as often as it is reached: bundles within each other can seal all that are
/// within them, which doubles with every level.
constexpr std::size_t countLimit = 20'000;

/// Bytes of code that one job digests.
constexpr std::uint64_t jobSize = std::uint64_t{4} << 20;

ExpectedDigests expectedDigests(const CodeDirectory& directory, std::uint64_t firstSlot, std::uint64_t count) {
    const std::string_view first = directory.codeSlot(static_cast<std::uint32_t>(firstSlot));
    return {.kind = directory.digestKind(),
            .size = directory.hashSize(),
            .digests = {first.data(), static_cast<std::size_t>(count) * directory.hashSize()}};
}

bool coverTheSame(const CodeDirectory& left, const CodeDirectory& right) {
    return left.codeLimit() == right.codeLimit() && left.pageSize() == right.pageSize();
}

/// The pages that a directory covers, in jobs of some length, with the digests of all others that cover the same.
class PagePlan {
  public:
    PagePlan(const CodeObject& object, const CodeArchitecture& architecture, const CodeDirectories& directories,
             HashWork& work, Checks& checks)
        : object_(object), architecture_(architecture), directories_(directories), work_(work), checks_(checks) {}

    void make() {
        for (const CodeDirectory& directory : directories_.all) {
            if (directory.codeLimit() > architecture_.slice.size) throw failure_;
            const auto first = std::find_if(directories_.all.begin(), directories_.all.end(),
                                            [&](const CodeDirectory& each) { return coverTheSame(each, directory); });
            if (&*first == &directory) planJobs(directory);
        }
    }

  private:
    void planJobs(const CodeDirectory& directory) {
        const std::uint64_t pageSize = directory.pageSize() == 0 ? directory.codeLimit() : directory.pageSize();
        const std::uint64_t pagesInJob = pageSize == 0 ? 1 : std::max<std::uint64_t>(1, jobSize / pageSize);
        for (std::uint64_t slot = 0; slot < directory.codeSlotCount(); slot += pagesInJob) {
            const std::uint64_t count = std::min<std::uint64_t>(pagesInJob, directory.codeSlotCount() - slot);
            const std::uint64_t start = slot * pageSize;
            HashJob job{.file = object_.executable,
                        .offset = architecture_.slice.offset + start,
                        .length = std::min(count * pageSize, directory.codeLimit() - start),
                        .pageSize = directory.pageSize()};
            for (const CodeDirectory& each : directories_.all) {
                if (coverTheSame(each, directory)) job.expected.push_back(expectedDigests(each, slot, count));
            }
            checks_.addJob(work_.add(std::move(job)), failure_);
        }
    }

    const CodeObject& object_;
    const CodeArchitecture& architecture_;
    const CodeDirectories& directories_;
    HashWork& work_;
    Checks& checks_;
    CodeFailure failure_{.problem = CodeProblem::signatureFailed, .architecture = architecture_.name};
};

/// A Mac takes the slices of a file for one piece of code only when one team signed them all.
void checkTeams(const std::vector<SignedSlice>& slices) {
    // Anybody can write a team into an ad hoc signature.
    const auto team = [](const SignedSlice& slice) -> std::optional<std::string> {
        return slice.signer ? slice.directory().teamIdentifier() : std::nullopt;
    };
    for (const SignedSlice& slice : slices) {
        if (team(slice) != team(slices.front())) {
            throw CodeFailure{.problem = CodeProblem::signatureInvalid, .architecture = slice.architecture};
        }
    }
}

void planSlices(VerifiedCode& code, const CodePlan::Place& place, const PlanSetting& setting, bool withPages,
                Checks& checks) {
    code.slices.reserve(code.object.architectures.size());
    for (CodeArchitecture& architecture : code.object.architectures) {
        const SignedSlice& slice =
            code.slices.emplace_back(SignedSlice::verify(code.object, architecture, setting.trust));
        // The signatures of much nested code would add up.
        architecture.components = {};
        if (withPages) PagePlan(code.object, architecture, slice.directories, setting.work, checks).make();
        if (place.requirement != nullptr && !slice.meets(*place.requirement)) {
            throw CodeFailure{.problem = CodeProblem::requirementFailed, .architecture = architecture.name};
        }
    }
    checkTeams(code.slices);
}

void checkFreeOfDetritus(const FileURL& file) {
    if (auto notes = detritus(file); !notes.empty()) {
        throw CodeFailure{.problem = CodeProblem::detritus, .notes = std::move(notes)};
    }
}

void checkExecutable(const VerifiedCode& code) {
    const CodeObject& object = code.object;
    checkFreeOfDetritus(object.executable);
    if (object.isMachO && !MachO::isTightlyPacked(object.openExecutable().get(), object.executable)) {
        throw CodeFailure{.problem = CodeProblem::badExecutable};
    }
    for (std::size_t index = 0; index < code.slices.size(); ++index) {
        const CodeArchitecture& architecture = object.architectures[index];
        if (code.slices[index].directory().codeLimit() != architecture.signingLimit()) {
            throw CodeFailure{.problem = CodeProblem::signatureInvalid, .architecture = architecture.name};
        }
    }
}

/// What only a strict look finds: things in and beside the code that no signature covers.
void checkStructure(const VerifiedCode& code) {
    if (const auto& bundle = code.object.bundle) {
        if (bundle->signatureFolderHoldsOthers()) throw CodeFailure{.problem = CodeProblem::unsealedRoot};
        if (std::string problem = bundle->structuralProblem(); !problem.empty()) {
            throw CodeFailure{.problem = std::move(problem)};
        }
        checkFreeOfDetritus(bundle->root);
    }
    checkExecutable(code);
}

} // namespace

bool SealedScope::covers(const FileURL& file) const {
    for (const SealedScope* scope = this; scope != nullptr; scope = scope->outer) {
        const FileURL relative = file.lexically_relative(scope->root);
        if (relative.empty() || *relative.begin() == "..") continue;
        return file == scope->executable || CodeResources::isSealed(scope->rules, relative.string());
    }
    return false;
}

CodePlan CodePlan::of(const Place& place, const PlanSetting& setting) {
    CodePlan plan;
    // Without a deep look nested code is only asked who signed it.
    const bool isComplete = place.depth == 0 || setting.options.isDeep;
    try {
        if (place.depth > depthLimit || ++setting.count > countLimit)
            throw CodeFailure{.problem = CodeProblem::notReadable};
        CodeObject object = CodeObject::open(place.path, place.version);
        plan.code = std::make_unique<VerifiedCode>();
        plan.code->object = std::move(object);
        planSlices(*plan.code, place, setting, isComplete, *plan.checks);
        if (isComplete) {
            planResources(*plan.code, place, setting, *plan.checks);
            if (setting.options.isStrict) checkStructure(*plan.code);
        }
    } catch (CodeFailure& failure) {
        plan.checks->addFailure(std::move(failure));
    }
    return plan;
}

} // namespace corvane::CodeSignature
