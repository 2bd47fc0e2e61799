#include "Services/PackagingPipeline/ResultVerification.hpp"

#include "Services/PackageSemanticValidator.hpp"
#include "Services/PackagingPipeline/ProductSigning.hpp"
#include "Services/PackagingPipeline/SideFiles.hpp"
#include "Support/FileManager.hpp"
#include "Support/Text.hpp"

namespace corvane::Packaging {
namespace {

constexpr const char* pkgutil = "/usr/sbin/pkgutil";

/// The text behind the first colon of the first line with "Status:".
std::string signatureStatus(std::string_view listing) {
    for (const std::string_view line : Text::split(listing, '\n')) {
        if (line.find("Status:") == std::string_view::npos) continue;
        const auto colon = line.find(':');
        const std::string_view behind = line.substr(colon + 1);
        return Text::trimmingWhitespace(behind.empty() ? line.substr(0, colon) : behind);
    }
    return "unreadable";
}

std::string inputSignatureStatus(const Context& context) {
    try {
        const std::string input = context.configuration.inputURL.string();
        return signatureStatus(context.run(pkgutil, {"--check-signature", input}).standardOutput);
    } catch (const LaunchError&) {
        return "unreadable";
    }
}

void checkResult(const std::string& tool, CommandResult result) {
    if (!result.succeeded()) throw PipelineError::toolFailed(tool, result.exitCode, std::move(result.standardError));
}

/// Returns the package to verify and place: the signed one, or the unsigned one itself.
FileURL signedCandidate(const Context& context, const FileURL& unsignedPkg) {
    const auto& identity = context.configuration.signingIdentity;
    if (!identity) {
        context.log("Skipping signing - pkg is UNSIGNED (not usable for PreStage/MDM commands)");
        return unsignedPkg;
    }
    context.log("Signing with: " + *identity);
    FileURL candidate = context.workDirectory / "signed.pkg";
    signProduct(context, *identity, unsignedPkg, candidate);
    checkResult("pkgutil", context.run(pkgutil, {"--check-signature", candidate.string()}));
    return candidate;
}

void enforceSizeLimit(const Context& context, const FileURL& candidate) {
    const auto& limit = context.configuration.maximumOutputBytesExclusive;
    if (!limit) return;
    const std::uint64_t size = FileManager::fileSize(candidate);
    if (size >= *limit) {
        throw PipelineError::invalidInput("Finished package is " + std::to_string(size) +
                                          " bytes; required size is below " + std::to_string(*limit) + " bytes");
    }
    context.log("Output size gate passed: " + std::to_string(size) + " bytes < " + std::to_string(*limit) + " bytes");
}

/// Returns the folder into which the candidate was expanded for the comparison.
FileURL compareWithBaseline(const Context& context, const FileURL& baseline, const FileURL& candidate,
                            const std::vector<PackageComponentDescriptor>& removedComponents) {
    context.log("Comparing rebuilt package semantics with the original");
    PackageSemanticValidator::Expectations expectations{.modernCompression = context.configuration.modernCompression,
                                                        .requestedMinOS = context.configuration.minOSVersion,
                                                        .removedComponentArchiveNames = {}};
    for (const PackageComponentDescriptor& component : removedComponents) {
        expectations.removedComponentArchiveNames.insert(component.archiveName);
    }
    FileURL expanded =
        PackageSemanticValidator::validate(baseline, candidate, expectations, context.workDirectory, context.stop);
    context.log(removedComponents.empty()
                    ? "Package metadata, scripts, payload, ownership, and Distribution match"
                    : "Declared components are absent; all remaining package metadata, scripts, payload, ownership, "
                      "and Distribution match");
    return expanded;
}

void place(const Context& context, const FileURL& candidate, const FileURL& outputURL) {
    if (FileManager::fileExists(outputURL)) FileManager::removeItem(outputURL);
    if (context.configuration.signingIdentity) {
        FileManager::moveItem(candidate, outputURL);
    } else {
        FileManager::copyItem(candidate, outputURL);
    }
}

} // namespace

void gatekeeperInstallGate(const Context& context) {
    context.begin(PipelineStep::verifyInput);
    context.log("Input signature: " + inputSignatureStatus(context));
    const std::string input = context.configuration.inputURL.string();
    if (!context.run("/usr/sbin/spctl", {"--assess", "--type", "install", input}).succeeded()) {
        if (!context.configuration.allowUntrustedInput) {
            throw PipelineError::untrustedInput("Gatekeeper rejects the input pkg (unsigned or not notarized)");
        }
        context.log("WARNING: Gatekeeper rejects the input pkg (continuing)");
    }
    context.end(PipelineStep::verifyInput);
}

void signAndVerify(const Context& context, const FileURL& unsignedPkg, const FileURL& outputURL,
                   const std::optional<FileURL>& recompressBaseline,
                   const std::vector<PackageComponentDescriptor>& removedComponents) {
    context.begin(PipelineStep::sign);
    const FileURL candidate = signedCandidate(context, unsignedPkg);
    context.end(PipelineStep::sign);
    context.begin(PipelineStep::verify);
    checkResult("installer refuses to read the pkg",
                context.run("/usr/sbin/installer", {"-pkginfo", "-pkg", candidate.string()}));
    std::optional<FileURL> expanded;
    if (recompressBaseline) {
        expanded = compareWithBaseline(context, *recompressBaseline, candidate, removedComponents);
    }
    enforceSizeLimit(context, candidate);
    const SideFiles sideFiles(context, candidate, expanded, outputURL, removedComponents);
    place(context, candidate, outputURL);
    sideFiles.place(context);
    context.end(PipelineStep::verify);
}

std::string plistValue(const Context& context, const FileURL& url, const std::string& key) {
    const CommandResult result = context.run("/usr/bin/plutil", {"-extract", key, "raw", "-o", "-", url.string()});
    if (!result.succeeded()) {
        throw PipelineError::invalidInput("Cannot read " + key + " from " + lastPathComponent(url));
    }
    return Text::trimmingWhitespaceAndNewlines(result.standardOutput);
}

} // namespace corvane::Packaging
