#include "Platform/Formats/CodeVerification/CodeVerification.hpp"

#include "Platform/Formats/CodeVerification/CodePlan.hpp"

namespace corvane::CodeSignature {

CodeVerification CodeVerification::of(const FileURL& path, const Options& options, const CodeTrust& trust) {
    HashWork work;
    const Requirement* requirement = options.requirement ? &*options.requirement : nullptr;
    std::size_t count = 0;
    CodePlan plan = CodePlan::of({.path = path, .requirement = requirement},
                                 {.options = options, .trust = trust, .work = work, .count = count});
    work.finish();
    return {.failure = plan.checks->failure(work), .code = std::move(plan.code)};
}

} // namespace corvane::CodeSignature
