#include "Platform/Formats/CodeVerification/ExecutionAssessment.hpp"

#include "Platform/Formats/CodeSignature/CodeProblem.hpp"
#include "Platform/Trust/AppleMarkers.hpp"
#include "Support/Text.hpp"

#include <algorithm>
#include <array>

namespace corvane::CodeSignature {
namespace {

using Verdict = ExecutionAssessment::Verdict;

/// Faults of the envelope and not of what is in it, which the rules turn down without calling the signature broken.
constexpr std::array<std::string_view, 11> structuralProblems{
    CodeProblem::weakRules,
    CodeProblem::oldEnvelope,
    CodeProblem::unsupportedResource,
    CodeProblem::notReadable,
    CodeProblem::notPlainFile,
    CodeProblem::badExecutable,
    CodeProblem::badFrameworkVersion,
    CodeProblem::unsealedRoot,
    CodeProblem::unsealedFrameworkRoot,
    CodeProblem::badLink,
    CodeProblem::detritus,
};

ExecutionAssessment reject(std::string reason) { return {Verdict::rejected, std::move(reason)}; }

ExecutionAssessment ofFailure(const CodeFailure& failure) {
    if (failure.problem == CodeProblem::notSigned && failure.subcomponent.empty()) return reject("no usable signature");
    const bool isStructural =
        std::find(structuralProblems.begin(), structuralProblems.end(), failure.problem) != structuralProblems.end();
    if (isStructural) return reject("obsolete resource envelope: " + failure.problem);
    return {Verdict::broken, failure.problem};
}

bool isAppleSystem(const CertificateChain& chain) {
    return chain.owner == AnchorOwner::apple && chain.certificates.size() > 1 &&
           chain.certificates[1].commonName() == AppleMarkers::systemAuthorityName;
}

bool isDeveloperID(const CertificateChain& chain) {
    return chain.owner == AnchorOwner::apple && chain.intermediateHasExtension(AppleMarkers::developerIDAuthority) &&
           chain.certificates.front().hasExtension(AppleMarkers::developerIDApplication);
}

std::string refusalOfChain(const CertificateChain& chain) {
    if (chain.owner == AnchorOwner::administrator) return "not issued by Apple";
    if (chain.owner == AnchorOwner::nobody) return "untrusted certificate";
    if (chain.expired) return "signed by a certificate that has since expired";
    return "";
}

/// Judges slices one after the other and keeps what all of them together come to.
class Rules {
  public:
    void judge(const VerifiedCode& code) {
        for (const SignedSlice& slice : code.slices) judge(slice, describe(code, slice));
        for (const auto& nested : code.nested) judge(*nested);
    }

    ExecutionAssessment result(const CodeTickets& tickets) const {
        if (!refusal_.empty()) return reject(refusal_);
        if (unnamed_.empty()) return {Verdict::accepted, rule_};
        return reject(ticketProblem(tickets) + "; no online lookup was done");
    }

  private:
    void judge(const SignedSlice& slice, const std::string& name) {
        const std::string refusal = slice.signer ? refusalOfChain(slice.signer->chain) : "signed ad hoc";
        if (!refusal.empty()) return refuse(name, refusal);
        const CertificateChain& chain = slice.signer->chain;
        if (isAppleSystem(chain)) return accept("Apple System");
        if (chain.certificates.front().hasExtension(AppleMarkers::appStoreApplication)) return accept("Mac App Store");
        if (!isDeveloperID(chain)) return refuse(name, "not signed with a Developer ID");
        if (slice.isNotarized) return accept(notarized);
        unnamed_.push_back(name);
    }

    void accept(const char* rule) {
        if (rule_.empty()) rule_ = rule;
    }

    /// The first slice is the application's own, of which nothing needs to be said but the reason.
    void refuse(const std::string& name, const std::string& reason) {
        if (refusal_.empty()) refusal_ = isFirst() ? reason : name + ": " + reason;
    }
    bool isFirst() const { return rule_.empty() && unnamed_.empty(); }

    std::string ticketProblem(const CodeTickets& tickets) const {
        if (!tickets.problem.empty()) return tickets.problem;
        if (rule_ == notarized) return "the ticket does not name " + Text::joined(unnamed_, ", ");
        return tickets.isStapled ? "the stapled ticket is for another application" : "no stapled ticket";
    }

    static std::string describe(const VerifiedCode& code, const SignedSlice& slice) {
        const std::string name = lastPathComponent(code.object.url);
        return slice.architecture.empty() ? name : name + " (" + slice.architecture + ")";
    }

    static constexpr const char* notarized = "Notarized Developer ID";

    /// That accepts the first slice that is accepted at all.
    std::string rule_;
    std::string refusal_;
    /// What would be accepted if a ticket named it.
    std::vector<std::string> unnamed_;
};

} // namespace

ExecutionAssessment ExecutionAssessment::of(const CodeVerification& verification, const CodeTickets& tickets) {
    if (verification.failure) return ofFailure(*verification.failure);
    const VerifiedCode& code = *verification.code;
    if (!code.object.bundle || !code.object.bundle->isApplication()) {
        return reject("the code is valid but does not seem to be an app");
    }
    Rules rules;
    rules.judge(code);
    return rules.result(tickets);
}

} // namespace corvane::CodeSignature
