#include "Sources/CorvaneCLIKit/CLIApplication.hpp"

#include "Models/CorvaneVersion.hpp"
#include "Support/FileManager.hpp"
#include "Support/Text.hpp"

#include <unistd.h>

#include <algorithm>
#include <iostream>

namespace corvane {

namespace {

/// Relative paths of a folder that is gone lead nowhere; everything else works in it.
FileURL currentDirectory() {
    std::error_code gone;
    const FileURL url = std::filesystem::current_path(gone);
    return gone ? FileURL("/") : url;
}

} // namespace

std::int32_t CLIApplication::run(const std::vector<std::string>& arguments) const {
    const bool json = std::find(arguments.begin(), arguments.end(), "--json") != arguments.end();
    try {
        return dispatch(CLIArgumentParser::parse(arguments, currentDirectory()));
    } catch (const CLIArgumentError& error) {
        constexpr std::int32_t usageStatus = 64;
        if (json) return emitFailure(error.errorDescription(), true, usageStatus);
        streams_->standardError("corvane: " + error.errorDescription() + "\n\n" +
                                std::string(CLIArgumentParser::usage) + "\n");
        return usageStatus;
    } catch (const std::exception& error) { // the system has no thread, pipe or memory left
        return emitFailure(error.what(), json, 1);
    }
}

std::int32_t CLIApplication::dispatch(const CLIInvocation& invocation) const {
    struct Dispatch {
        const CLIApplication& application;
        std::int32_t operator()(const CLIRunOptions& options) const { return application.runPipeline(options); }
        std::int32_t operator()(const CLIInvocations::Identities& listing) const {
            return application.listIdentities(listing.json);
        }
        std::int32_t operator()(const CLIInvocations::Components& listing) const {
            return application.listComponents(listing.inputURL, listing.json);
        }
        std::int32_t operator()(const CLIInvocations::Help&) const { return printed(CLIArgumentParser::usage); }
        std::int32_t operator()(const CLIInvocations::Version&) const { return printed(CorvaneVersion::current); }
        std::int32_t printed(std::string_view text) const {
            application.streams_->standardOutput(std::string(text) + "\n");
            return 0;
        }
    };
    return std::visit(Dispatch{*this}, invocation);
}

void CLIApplication::emitJSON(const JSONValue& object) const {
    std::string line;
    try {
        line = compactJSON(object) + "\n";
    } catch (const JSONValue::exception&) {
        streams_->standardError("corvane: could not encode JSON output\n");
        return;
    }
    streams_->standardOutput(line);
}

std::int32_t CLIApplication::emitFailure(const std::string& message, bool json, std::int32_t exitCode) const {
    if (json) {
        emitJSON({{"event", "failed"}, {"exitCode", exitCode}, {"message", Text::decodedUTF8(message)}});
    } else {
        streams_->standardError("corvane: " + message + "\n");
    }
    return exitCode;
}

bool CLIApplication::inputExists(const FileURL& inputURL, bool json) const {
    if (FileManager::fileExists(inputURL) && !FileManager::isDirectory(inputURL)) return true;
    emitFailure("input file not found: " + inputURL.string(), json, 66);
    return false;
}

bool CLIApplication::validateFilesystem(const CLIRunOptions& options) const {
    if (!inputExists(options.inputURL, options.json)) return false;
    if (FileManager::isDirectory(options.outputDirectory)) return true;
    emitFailure("output directory not found: " + options.outputDirectory.string(), options.json, 66);
    return false;
}

bool CLIApplication::inputIsTTY() { return ::isatty(STDIN_FILENO) == 1; }

std::optional<std::string> CLIApplication::inputLine() {
    std::string line;
    if (!std::getline(std::cin, line)) return std::nullopt;
    return line;
}

} // namespace corvane
