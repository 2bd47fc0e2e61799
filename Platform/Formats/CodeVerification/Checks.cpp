#include "Platform/Formats/CodeVerification/Checks.hpp"

#include "Platform/Formats/CodeSignature/CodeProblem.hpp"

namespace corvane::CodeSignature {
namespace {

/// What has been found wrong with resources so far, under the first one's problem.
class ResourceFailures {
  public:
    void add(const CodeFailure& failure) {
        if (!all_) all_ = CodeFailure{.problem = failure.problem};
        all_->notes.insert(all_->notes.end(), failure.notes.begin(), failure.notes.end());
    }
    const std::optional<CodeFailure>& all() const { return all_; }

  private:
    std::optional<CodeFailure> all_;
};

} // namespace

void Checks::addFailure(CodeFailure failure) {
    checks_.push_back({.kind = Kind::final, .failure = std::move(failure)});
}

void Checks::addJob(std::size_t job, CodeFailure failure) {
    checks_.push_back({.kind = Kind::final, .job = job, .failure = std::move(failure)});
}

void Checks::addResourceFailure(const char* problem, FileNote note) {
    checks_.push_back({.kind = Kind::resource, .failure = {.problem = problem, .notes = {std::move(note)}}});
}

void Checks::addResourceJob(std::size_t job, const char* problem, FileNote note) {
    checks_.push_back(
        {.kind = Kind::resource, .job = job, .failure = {.problem = problem, .notes = {std::move(note)}}});
}

void Checks::endResources() { checks_.push_back({.kind = Kind::endOfResources}); }

void Checks::addNested(const FileURL& url, std::unique_ptr<Checks> checks) {
    checks_.push_back({.kind = Kind::nested, .failure = {.subcomponent = url}, .nested = std::move(checks)});
}

void Checks::addOtherVersion(const FileURL& url, std::unique_ptr<Checks> checks) {
    checks_.push_back({.kind = Kind::otherVersion, .failure = {.subcomponent = url}, .nested = std::move(checks)});
}

std::optional<CodeFailure> Checks::failure(const HashWork& work) const {
    ResourceFailures resources;
    for (const Check& check : checks_) {
        if (check.job && work.isGood(*check.job)) continue;
        switch (check.kind) {
        case Kind::final:
            return check.failure;
        case Kind::resource:
            resources.add(check.failure);
            break;
        case Kind::endOfResources:
            if (resources.all()) return resources.all();
            break;
        case Kind::nested:
        case Kind::otherVersion:
            auto inner = check.nested->failure(work);
            if (!inner) break;
            const FileURL& url = check.failure.subcomponent;
            if (check.kind == Kind::otherVersion) {
                inner->problem = CodeProblem::badFrameworkVersion;
            } else if (inner->problem == CodeProblem::requirementFailed && inner->subcomponent.empty()) {
                resources.add({.problem = CodeProblem::nestedCodeFailed,
                               .notes = {{.kind = FileNote::Kind::modified, .file = url}}});
                break;
            }
            if (inner->subcomponent.empty()) inner->subcomponent = url;
            return inner;
        }
    }
    return std::nullopt;
}

} // namespace corvane::CodeSignature
