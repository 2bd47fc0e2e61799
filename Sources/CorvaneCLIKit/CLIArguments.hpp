#pragma once

#include "Models/PipelineModels.hpp"
#include "Support/FileURL.hpp"

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace corvane {

/// What the command line asks of a packaging job.
struct CLIRunOptions {
    PipelineAction action = PipelineAction::signOnly;
    FileURL inputURL;
    FileURL outputDirectory;
    std::optional<std::string> signingIdentity;
    bool modernCompression = true;
    std::string minOSVersion = "12.0";
    bool allowUntrustedInput = false;
    bool allowUntimestampedSignature = false;
    bool writeBundleInventory = false;
    std::vector<std::string> componentIdentifiersToRemove;
    std::optional<std::uint64_t> maximumOutputBytesExclusive;
    bool json = false;
    bool interactive = false;

    bool operator==(const CLIRunOptions&) const = default;
};

/// What a command line means.
namespace CLIInvocations {
struct Identities {
    bool json;
    bool operator==(const Identities&) const = default;
};
struct Components {
    FileURL inputURL;
    bool json;
    bool operator==(const Components&) const = default;
};
struct Help {
    bool operator==(const Help&) const = default;
};
struct Version {
    bool operator==(const Version&) const = default;
};
} // namespace CLIInvocations

using CLIInvocation = std::variant<CLIRunOptions, CLIInvocations::Identities, CLIInvocations::Components,
                                   CLIInvocations::Help, CLIInvocations::Version>;

/// A command line that cannot be understood; the text says why.
class CLIArgumentError : public std::exception {
  public:
    static CLIArgumentError usage(std::string message) { return CLIArgumentError(std::move(message)); }

    const std::string& errorDescription() const { return message_; }
    const char* what() const noexcept override { return message_.c_str(); }
    bool operator==(const CLIArgumentError& other) const { return message_ == other.message_; }

  private:
    explicit CLIArgumentError(std::string message) : message_(std::move(message)) {}
    std::string message_;
};

/// Turns the process's arguments into one invocation. Reads no file and tests no existence.
namespace CLIArgumentParser {

/// @param arguments without the program's name
/// @param currentDirectory where relative paths start
/// @throws CLIArgumentError
CLIInvocation parse(const std::vector<std::string>& arguments, const FileURL& currentDirectory);

/// A positive number of bytes, with the units b, kib, mib and gib in any letter case. @throws CLIArgumentError
std::uint64_t parseByteSize(const std::string& text);

/// The help text, without a final line break.
extern const std::string_view usage;

} // namespace CLIArgumentParser
} // namespace corvane
