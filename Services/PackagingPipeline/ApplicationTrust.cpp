#include "Services/PackagingPipeline/ApplicationTrust.hpp"

#include "Services/PackagingPipeline/ResultVerification.hpp"
#include "Support/FileManager.hpp"
#include "Support/Text.hpp"

#include <algorithm>
#include <array>

namespace corvane::Packaging {
namespace {

constexpr const char* codesign = "/usr/bin/codesign";

constexpr std::array<std::string_view, 3> metadataPhrases{
    "resource fork, finder information, or similar detritus not allowed",
    "disallowed xattr com.apple.finderinfo",
    "disallowed xattr com.apple.resourcefork",
};

CommandResult verifyStrictly(const Context& context, const FileURL& application) {
    return context.run(codesign, {"--verify", "--deep", "--strict", application.string()});
}

/// A copy of the application without the metadata that a disk image adds and no signature allows.
FileURL normalizedSignatureCopy(const Context& context, const FileURL& application) {
    const FileURL folder = context.workDirectory / "signature-normalized";
    FileManager::createDirectory(folder);
    FileURL copy = folder / lastPathComponent(application);
    context.runChecked("/usr/bin/ditto", {application.string(), copy.string()});
    for (const char* attribute : {"com.apple.FinderInfo", "com.apple.ResourceFork"}) {
        context.run("/usr/bin/xattr", {"-dr", attribute, copy.string()});
    }
    return copy;
}

/// The bundle whose signature is good: the one on the image, or its normalized copy. Empty when there is none.
FileURL validlySigned(const Context& context, const FileURL& found) {
    const CommandResult result = verifyStrictly(context, found);
    if (result.succeeded()) return found;
    if (!isForbiddenSignatureMetadataFailure(result.standardError)) return {};
    context.log("Vendor image contains signature-incompatible Finder/resource metadata; validating a normalized copy");
    FileURL copy = normalizedSignatureCopy(context, found);
    if (!verifyStrictly(context, copy).succeeded()) return {};
    context.log("Normalized copy passes strict vendor signature verification");
    return copy;
}

void letUntrustedThrough(Context& context, const std::string& refusal, const std::string& warning) {
    if (!context.configuration.allowUntrustedInput) throw PipelineError::untrustedInput(refusal);
    context.log(warning);
    context.keepQuarantine = true;
}

void reportTeam(const Context& context, const FileURL& application) {
    const CommandResult details = context.run(codesign, {"-dvv", application.string()});
    if (const auto team = Text::firstMatchValue(details.standardError, "TeamIdentifier=")) {
        context.log("Vendor signature valid (TeamIdentifier=" + *team + ")");
    }
}

void assess(Context& context, const FileURL& application, const std::string& name) {
    if (context.run("/usr/sbin/spctl", {"--assess", "--type", "exec", application.string()}).succeeded()) {
        context.log("Gatekeeper assessment: accepted");
    } else {
        letUntrustedThrough(context, "Gatekeeper rejects " + name + " (not notarized/trusted)",
                            "WARNING: Gatekeeper rejects the app (continuing; quarantine kept)");
    }
}

} // namespace

FileURL findApplication(const Context& context) {
    std::vector<FileURL> applications;
    for (const FileURL& child : FileManager::contentsOfDirectory(*context.mountPoint)) {
        if (pathExtension(child) != "app") continue;
        const mode_t mode = FileManager::itemStatus(child).st_mode;
        if (S_ISLNK(mode)) {
            throw PipelineError::invalidInput("Refusing symlinked app on DMG: " + lastPathComponent(child));
        }
        if (S_ISDIR(mode)) applications.push_back(child);
    }
    if (applications.size() != 1) {
        throw PipelineError::invalidInput("Expected exactly 1 .app at the DMG root, found " +
                                          std::to_string(applications.size()));
    }
    context.log("Found " + lastPathComponent(applications.front()));
    return applications.front();
}

VendorApplication verifyApplication(Context& context, const FileURL& found) {
    context.begin(PipelineStep::verifyInput);
    VendorApplication application{.found = found, .working = found, .identifier = {}, .version = {}};
    if (const FileURL trusted = validlySigned(context, found); !trusted.empty()) {
        application.working = trusted;
        reportTeam(context, trusted);
        assess(context, trusted, lastPathComponent(found));
    } else {
        letUntrustedThrough(context, "Vendor code signature is invalid or missing",
                            "WARNING: vendor app unsigned/invalid (continuing; quarantine kept)");
    }
    const FileURL information = application.working / "Contents/Info.plist";
    application.identifier = plistValue(context, information, "CFBundleIdentifier");
    application.version = plistValue(context, information, "CFBundleShortVersionString");
    if (!isSafe(application.identifier, ".-")) {
        throw PipelineError::invalidInput("Suspicious bundle identifier: " + application.identifier);
    }
    if (!isSafe(application.version, "._-")) {
        throw PipelineError::invalidInput("Suspicious version string: " + application.version);
    }
    context.log("identifier=" + application.identifier + " version=" + application.version);
    context.end(PipelineStep::verifyInput);
    return application;
}

bool isForbiddenSignatureMetadataFailure(std::string_view standardError) {
    const std::string text = Text::lowercased(standardError);
    return std::any_of(metadataPhrases.begin(), metadataPhrases.end(),
                       [&](std::string_view phrase) { return text.find(phrase) != std::string::npos; });
}

bool isSafe(std::string_view text, std::string_view extraAllowed) {
    const auto isAllowed = [&](char character) {
        const bool isLetter = (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
        const bool isDigit = character >= '0' && character <= '9';
        return isLetter || isDigit || extraAllowed.find(character) != std::string_view::npos;
    };
    return !text.empty() && std::all_of(text.begin(), text.end(), isAllowed);
}

} // namespace corvane::Packaging
