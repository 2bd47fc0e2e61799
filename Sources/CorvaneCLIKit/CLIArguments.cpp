#include "Sources/CorvaneCLIKit/CLIArguments.hpp"

#include "Support/Text.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

namespace corvane::CLIArgumentParser {
namespace {

using Arguments = std::vector<std::string>;

struct Command {
    std::string_view word;
    PipelineAction action;
    std::string_view inputExtension;
};

constexpr std::array<Command, 3> commands{{
    {"dmg-to-pkg", PipelineAction::dmgToPkg, "dmg"},
    {"recompress", PipelineAction::recompressPkg, "pkg"},
    {"sign", PipelineAction::signOnly, "pkg"},
}};

bool isHelp(std::string_view argument) { return argument == "-h" || argument == "--help"; }

bool contains(const Arguments& arguments, std::string_view wanted) {
    return std::find(arguments.begin(), arguments.end(), wanted) != arguments.end();
}

void require(bool condition, std::string message) {
    if (!condition) throw CLIArgumentError::usage(std::move(message));
}

FileURL resolve(const std::string& path, const FileURL& directory) {
    const std::string expanded = expandingTilde(path);
    return standardized(expanded.starts_with('/') ? expanded : directory.string() + "/" + expanded);
}

bool hasExtension(const FileURL& url, std::string_view extension) {
    return Text::lowercased(pathExtension(url)) == extension;
}

bool isSafeComponentIdentifier(std::string_view text) {
    const auto scalars = Text::scalars(text);
    return !scalars.empty() && std::all_of(scalars.begin(), scalars.end(), [](char32_t scalar) {
        return Text::isAlphanumeric(scalar) || scalar == '.' || scalar == '-' || scalar == '_';
    });
}

CLIInvocation parseIdentities(const Arguments& arguments) {
    if (std::any_of(arguments.begin(), arguments.end(), isHelp)) return CLIInvocations::Help{};
    for (const std::string& argument : arguments) {
        require(argument == "--json", "Unknown identities option: " + argument);
    }
    return CLIInvocations::Identities{.json = !arguments.empty()};
}

CLIInvocation parseComponents(const Arguments& arguments, const FileURL& currentDirectory) {
    if (std::any_of(arguments.begin(), arguments.end(), isHelp)) return CLIInvocations::Help{};
    Arguments inputs;
    for (const std::string& argument : arguments) {
        if (argument == "--json") continue;
        require(!argument.starts_with('-'), "Unknown components option: " + argument);
        inputs.push_back(argument);
    }
    require(inputs.size() == 1, "components requires exactly one .pkg input");
    FileURL inputURL = resolve(inputs.front(), currentDirectory);
    require(hasExtension(inputURL, "pkg"), "components requires a .pkg input");
    return CLIInvocations::Components{.inputURL = std::move(inputURL), .json = contains(arguments, "--json")};
}

/// Reads the arguments of a job from left to right, then checks them together.
class RunParser {
  public:
    RunParser(const Command& command, const Arguments& arguments, const FileURL& currentDirectory)
        : command_(command), arguments_(arguments), currentDirectory_(currentDirectory) {
        options_.action = command.action;
    }

    CLIInvocation parse() {
        for (; index_ < arguments_.size(); ++index_) {
            const std::string& argument = arguments_[index_];
            if (isHelp(argument)) return CLIInvocations::Help{};
            if (argument == "--version") return CLIInvocations::Version{};
            if (!takeFlag(argument) && !takeValue(argument)) takeInput(argument);
        }
        checkCombinations();
        resolvePaths();
        return options_;
    }

  private:
    bool takeFlag(std::string_view argument) {
        if (argument == "--unsigned") {
            unsignedGiven_ = true;
        } else if (argument == "--legacy-compression") {
            options_.modernCompression = false;
            legacyGiven_ = true;
        } else if (argument == "--allow-untrusted") {
            options_.allowUntrustedInput = true;
        } else if (argument == "--allow-untimestamped-signature") {
            options_.allowUntimestampedSignature = true;
        } else if (argument == "--bundle-inventory") {
            options_.writeBundleInventory = true;
        } else if (argument == "--json") {
            options_.json = true;
        } else if (argument == "--interactive") {
            options_.interactive = true;
        } else {
            return false;
        }
        return true;
    }

    bool takeValue(const std::string& option) {
        if (option == "--output-dir") {
            outputPath_ = nextValue(option);
        } else if (option == "--sign") {
            options_.signingIdentity = nextValue(option);
        } else if (option == "--min-os") {
            options_.minOSVersion = nextValue(option);
            minOSGiven_ = true;
        } else if (option == "--remove-component-id") {
            takeComponentIdentifier(nextValue(option));
        } else if (option == "--require-output-below") {
            options_.maximumOutputBytesExclusive = parseByteSize(nextValue(option));
        } else {
            return false;
        }
        return true;
    }

    const std::string& nextValue(const std::string& option) {
        ++index_;
        require(index_ < arguments_.size() && !arguments_[index_].empty(), option + " requires a value");
        return arguments_[index_];
    }

    void takeComponentIdentifier(const std::string& identifier) {
        require(isSafeComponentIdentifier(identifier), "Invalid component ID: " + identifier);
        Arguments& identifiers = options_.componentIdentifiersToRemove;
        if (!contains(identifiers, identifier)) identifiers.push_back(identifier);
    }

    void takeInput(const std::string& argument) {
        require(!argument.starts_with('-'), "Unknown option: " + argument);
        require(!inputPath_, "Expected one input file, got: " + argument);
        inputPath_ = argument;
    }

    void checkCombinations() const {
        const bool signs = options_.signingIdentity.has_value();
        require(inputPath_.has_value(), "Missing input file");
        require(!(signs && unsignedGiven_), "--sign and --unsigned are mutually exclusive");
        if (options_.action == PipelineAction::signOnly) {
            require(signs, "The sign command requires --sign <identity>");
            require(!minOSGiven_ && !legacyGiven_, "Compression options do not apply to the sign command");
        } else {
            require(signs || unsignedGiven_, "Choose --sign <identity> or explicitly pass --unsigned");
            require(!(minOSGiven_ && legacyGiven_), "--min-os cannot be combined with --legacy-compression");
        }
        if (options_.interactive) {
            require(options_.action == PipelineAction::dmgToPkg, "--interactive only applies to dmg-to-pkg");
            require(!options_.json, "--interactive cannot be combined with --json");
        }
        require(signs || !options_.allowUntimestampedSignature,
                "--allow-untimestamped-signature requires --sign <identity>");
        require(options_.componentIdentifiersToRemove.empty() || options_.action == PipelineAction::recompressPkg,
                "--remove-component-id only applies to recompress");
    }

    void resolvePaths() {
        options_.inputURL = resolve(*inputPath_, currentDirectory_);
        require(hasExtension(options_.inputURL, command_.inputExtension),
                "The " + std::string(command_.word) + " command requires a ." + std::string(command_.inputExtension) +
                    " input");
        options_.outputDirectory =
            outputPath_ ? resolve(*outputPath_, currentDirectory_) : deletingLastPathComponent(options_.inputURL);
    }

    const Command& command_;
    const Arguments& arguments_;
    const FileURL& currentDirectory_;
    std::size_t index_ = 0;
    CLIRunOptions options_;
    std::optional<std::string> inputPath_;
    std::optional<std::string> outputPath_;
    bool unsignedGiven_ = false;
    bool minOSGiven_ = false;
    bool legacyGiven_ = false;
};

} // namespace

CLIInvocation parse(const std::vector<std::string>& arguments, const FileURL& currentDirectory) {
    if (arguments.empty()) return CLIInvocations::Help{};
    const std::string& first = arguments.front();
    const Arguments rest(arguments.begin() + 1, arguments.end());
    if (isHelp(first) || first == "help") return CLIInvocations::Help{};
    if (first == "--version" || first == "version") return CLIInvocations::Version{};
    if (first == "identities") return parseIdentities(rest);
    if (first == "components") return parseComponents(rest, currentDirectory);
    for (const Command& command : commands) {
        if (first == command.word) return RunParser(command, rest, currentDirectory).parse();
    }
    throw CLIArgumentError::usage("Unknown command: " + first);
}

std::uint64_t parseByteSize(const std::string& text) {
    struct Unit {
        std::string_view suffix;
        std::uint64_t multiplier;
    };
    constexpr std::array<Unit, 4> units{{{"gib", 1ULL << 30}, {"mib", 1ULL << 20}, {"kib", 1ULL << 10}, {"b", 1}}};

    const std::string trimmed = Text::lowercased(Text::trimmingWhitespaceAndNewlines(text));
    std::string_view number = trimmed;
    std::uint64_t multiplier = 1;
    for (const Unit& unit : units) {
        if (!number.ends_with(unit.suffix)) continue;
        number.remove_suffix(unit.suffix.size());
        multiplier = unit.multiplier;
        break;
    }
    if (number.starts_with('+')) number.remove_prefix(1);
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value);
    const bool isNumber = error == std::errc() && end == number.data() + number.size();
    require(isNumber && value > 0, "Invalid byte size: " + text);
    require(value <= std::numeric_limits<std::uint64_t>::max() / multiplier, "Byte size is too large: " + text);
    return value * multiplier;
}

const std::string_view usage = R"(Usage:
  corvane dmg-to-pkg <input.dmg> (--sign <identity> | --unsigned) [options]
  corvane recompress <input.pkg> (--sign <identity> | --unsigned) [options]
  corvane sign <input.pkg> --sign <identity> [options]
  corvane identities [--json]
  corvane components <input.pkg> [--json]

Options:
  --output-dir <path>       Output beside input when omitted
  --sign <identity>         Exact Developer ID Installer common name
  --unsigned                Explicitly produce unsigned output
  --min-os <version>        Minimum target macOS for modern compression (default: 12.0)
  --legacy-compression      Use pkgbuild's legacy-compatible compression
  --allow-untrusted         Continue when Gatekeeper rejects the input
  --allow-untimestamped-signature
                            Explicitly allow signing without a trusted timestamp
  --bundle-inventory        Write top-level /Applications app IDs and versions
  --remove-component-id <id>
                            Remove an exact component PackageInfo ID; repeatable
  --require-output-below <size>
                            Fail unless output is smaller (for example 2GiB)
  --interactive             Allow a DMG mount that needs system UI and a TTY prompt
  --json                    Emit newline-delimited JSON events
  -h, --help                Show this help
  --version                 Show the Corvane version)";

} // namespace corvane::CLIArgumentParser
