#include "Platform/Formats/CodeVerification/ExecutionAssessment.hpp"
#include "Platform/Formats/PackageSignature/InstallAssessment.hpp"
#include "Platform/Tools/Tool.hpp"
#include "Platform/Trust/Keychain.hpp"
#include "Support/FileError.hpp"
#include "Support/FileManager.hpp"
#include "Support/FileURL.hpp"
#include "Support/Text.hpp"

#include <algorithm>

namespace corvane::Tools {
namespace {

constexpr const char* usage = "usage: spctl --assess --type {execute | install} [-v | --verbose] path";
constexpr int usageStatus = 2;
constexpr int failed = 1;
constexpr int denied = 3;

enum class Subject { installation, execution };

struct Call {
    Subject subject = Subject::execution;
    /// 1 prints what is accepted and by which rule, 2 the signer as well.
    int verbosity = 0;
    FileURL path;
};

[[noreturn]] void refuseCall() { throw UsageError(usage, usageStatus); }

Subject subject(std::string_view type) {
    constexpr std::string_view execute = "execute";
    if (type == "install") return Subject::installation;
    if (!type.empty() && execute.substr(0, type.size()) == type) return Subject::execution;
    refuseCall();
}

bool isVerbose(std::string_view option) {
    return option.size() > 1 && option[0] == '-' && option.find_first_not_of('v', 1) == std::string_view::npos;
}

Call parse(const Arguments& arguments) {
    Call call;
    bool assess = false;
    for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
        if (*argument == "--assess" || *argument == "-a") {
            assess = true;
        } else if (*argument == "--type" || *argument == "-t") {
            if (++argument == arguments.end()) refuseCall();
            call.subject = subject(*argument);
        } else if (*argument == "--verbose") {
            ++call.verbosity;
        } else if (isVerbose(*argument)) {
            call.verbosity += static_cast<int>(argument->size()) - 1;
        } else if (argument->empty() || argument->front() == '-' || !call.path.empty()) {
            refuseCall();
        } else {
            call.path = *argument;
        }
    }
    if (!assess || call.path.empty()) refuseCall();
    return call;
}

int fail(const Call& call, const std::string& reason) {
    printError(Text::printable(call.path.string() + ": " + reason) + "\n");
    return failed;
}

int accept(const Call& call, const std::string& rule, const Certificate& signer) {
    const std::string path = Text::printable(call.path.string());
    if (call.verbosity >= 1) printError(path + ": accepted\nsource=" + rule + "\n");
    if (call.verbosity >= 2) printError("origin=" + Text::printable(signer.commonName()) + "\n");
    return 0;
}

int reject(const Call& call, const std::string& reason) {
    printError(Text::printable(call.path.string() + ": rejected (" + reason + ")") + "\n");
    return denied;
}

/// The files of a package are only read when everything else would make it acceptable.
PackageSignature evaluate(const Xar::Archive& archive, const TrustSettings& settings) {
    using Files = PackageSignature::Files;
    const auto signature = PackageSignature::evaluate(archive, settings, Files::unchecked);
    if (!InstallAssessment::of(signature).accepted) return signature;
    return PackageSignature::evaluate(archive, settings, Files::checked);
}

int assessInstallation(const Call& call) {
    const auto signature =
        evaluate(Xar::Archive::openUnverified(call.path), Keychain::ofUser().trustSettings(currentTime()));
    using Seal = PackageSignature::Seal;
    if (signature.seal == Seal::contentsChanged || signature.seal == Seal::broken) return fail(call, signature.problem);
    const InstallAssessment assessment = InstallAssessment::of(signature);
    if (assessment.accepted) return accept(call, assessment.reason, signature.leaf());
    return reject(call, assessment.reason);
}

int assessExecution(const Call& call) {
    using CodeSignature::ExecutionAssessment;
    const auto trust = CodeSignature::CodeTrust::ofUser(call.path);
    const auto verification = CodeSignature::CodeVerification::of(call.path, {.isDeep = true, .isStrict = true}, trust);
    const auto assessment = ExecutionAssessment::of(verification, trust.tickets);
    switch (assessment.verdict) {
    case ExecutionAssessment::Verdict::accepted:
        return accept(call, assessment.reason, verification.code->slices.front().signer->leaf());
    case ExecutionAssessment::Verdict::rejected:
        return reject(call, assessment.reason);
    case ExecutionAssessment::Verdict::broken:
        break;
    }
    return fail(call, assessment.reason);
}

} // namespace

int spctl(const Arguments& arguments) {
    const Call call = parse(arguments);
    try {
        return call.subject == Subject::installation ? assessInstallation(call) : assessExecution(call);
    } catch (const FileError& error) {
        // What is missing may also be something else, which the whole text names.
        return fail(call, FileManager::fileExists(call.path) ? error.what() : error.code().message());
    } catch (const std::exception& error) {
        return fail(call, error.what());
    }
}

} // namespace corvane::Tools
