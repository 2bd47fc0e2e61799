#include "Platform/Formats/CodeSignature/CodeProblem.hpp"
#include "Platform/Formats/CodeVerification/CodeDescription.hpp"
#include "Platform/Formats/CodeVerification/CodeVerification.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Tools/Tool.hpp"
#include "Support/FileError.hpp"
#include "Support/FileManager.hpp"
#include "Support/Text.hpp"

#include <algorithm>

namespace corvane::Tools {
namespace {

using CodeSignature::CodeDescription;
using CodeSignature::CodeFailure;
using CodeSignature::CodeTrust;
using CodeSignature::CodeVerification;
using CodeSignature::Requirement;

constexpr const char* usage = "usage: codesign --verify [--deep] [--strict] [-R=requirement] [-v] path ...\n"
                              "       codesign -d [-v] path ...";
constexpr int usageStatus = 2;
constexpr int failed = 1;
constexpr int requirementNotMet = 3;

struct Call {
    bool verify = false, display = false;
    int verbosity = 0;
    CodeVerification::Options options;
    Arguments paths;
};

[[noreturn]] void refuseCall() { throw UsageError(usage, usageStatus); }

/// A requirement as an argument gives it: its text behind an equals sign.
Requirement requirement(std::string_view argument) try {
    if (argument.empty() || argument.front() != '=') refuseCall();
    return Requirement::parseText(argument.substr(1));
} catch (const FormatError& error) {
    throw UsageError(std::string("codesign: ") + error.what(), usageStatus);
}

/// One-letter options, several behind one dash. Of a call without another operation the first "v" is that: verify.
void takeLetters(Call& call, std::string_view letters) {
    for (const char letter : letters) {
        if (letter == 'd') {
            call.display = true;
        } else if (letter == 'v') {
            ++call.verbosity;
        } else {
            refuseCall();
        }
    }
}

void takeOption(Call& call, const std::string& option) {
    if (option == "--verify") {
        call.verify = true;
    } else if (option == "--display") {
        call.display = true;
    } else if (option == "--deep") {
        call.options.isDeep = true;
    } else if (option == "--strict") {
        call.options.isStrict = true;
    } else if (option == "--verbose") {
        ++call.verbosity;
    } else if (option.starts_with("-R")) {
        call.options.requirement = requirement(std::string_view(option).substr(2));
    } else if (option.starts_with("--")) {
        refuseCall();
    } else {
        takeLetters(call, std::string_view(option).substr(1));
    }
}

Call parse(const Arguments& arguments) {
    Call call;
    for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
        if (*argument == "-R" || *argument == "--test-requirement") {
            if (++argument == arguments.end()) refuseCall();
            call.options.requirement = requirement(*argument);
        } else if (argument->size() > 1 && argument->front() == '-') {
            takeOption(call, *argument);
        } else if (argument->empty() || *argument == "-") {
            refuseCall();
        } else {
            call.paths.push_back(*argument);
        }
    }
    if (!call.verify && !call.display && call.verbosity > 0) {
        call.verify = true;
        --call.verbosity;
    }
    if (call.verify == call.display || call.paths.empty()) refuseCall();
    return call;
}

void say(const std::string& path, const std::string& text) { printError(Text::printable(path + ": " + text) + "\n"); }

void tell(const std::string& path, const CodeFailure& failure) {
    say(path, failure.problem);
    if (!failure.subcomponent.empty()) {
        printError(Text::printable("In subcomponent: " + failure.subcomponent.string()) + "\n");
    }
    if (!failure.architecture.empty()) printError("In architecture: " + failure.architecture + "\n");
    for (const auto& note : failure.notes) printError(Text::printable(note.text()) + "\n");
}

/// Whether each slice is what its signer calls this code. What states no requirement is taken at its word.
bool satisfiesItself(const CodeSignature::VerifiedCode& code) {
    return std::all_of(code.slices.begin(), code.slices.end(), [](const CodeSignature::SignedSlice& slice) {
        return !slice.requirements || !slice.requirements->designated || slice.meets(*slice.requirements->designated);
    });
}

int verify(const Call& call, const std::string& path) {
    const auto verification = CodeVerification::of(path, call.options, CodeTrust::ofUser(path));
    if (verification.failure) {
        tell(path, *verification.failure);
        const bool isRequirement = verification.failure->problem == CodeSignature::CodeProblem::requirementFailed;
        return isRequirement && verification.failure->subcomponent.empty() ? requirementNotMet : failed;
    }
    if (call.verbosity == 0) return 0;
    say(path, "valid on disk");
    if (!satisfiesItself(*verification.code)) {
        say(path, "does not satisfy its designated Requirement");
        return requirementNotMet;
    }
    say(path, "satisfies its Designated Requirement");
    if (call.options.requirement) say(path, "explicit requirement satisfied");
    return 0;
}

int display(const Call& call, const std::string& path) {
    printError(CodeDescription::of(path, call.verbosity, CodeTrust::ofUser(path)).text);
    return 0;
}

int handle(const Call& call, const std::string& path) {
    try {
        return call.verify ? verify(call, path) : display(call, path);
    } catch (const CodeFailure& failure) {
        tell(path, failure);
    } catch (const FileError& error) {
        // What is missing may also be something else, which the whole text names.
        say(path, FileManager::fileExists(path) ? error.what() : error.code().message());
    } catch (const std::exception& error) {
        say(path, error.what());
    }
    return failed;
}

} // namespace

int codesign(const Arguments& arguments) {
    const Call call = parse(arguments);
    int status = 0;
    for (const std::string& path : call.paths) status = std::max(status, handle(call, path));
    return status;
}

} // namespace corvane::Tools
