#include "Sources/CorvaneCLIKit/CLIArguments.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>

namespace corvane {
namespace {

std::vector<std::string> words(const std::string& line) {
    std::vector<std::string> result;
    for (std::size_t start = 0; start < line.size();) {
        const auto end = std::min(line.find(' ', start), line.size());
        result.push_back(line.substr(start, end - start));
        start = end + 1;
    }
    return result;
}

CLIInvocation parse(const std::string& line) { return CLIArgumentParser::parse(words(line), "/folder/in"); }

std::string messageOf(const std::vector<std::string>& arguments) {
    try {
        CLIArgumentParser::parse(arguments, "/folder/in");
    } catch (const CLIArgumentError& error) {
        return error.errorDescription();
    }
    return "no error";
}

CLIRunOptions options(const std::string& line) { return std::get<CLIRunOptions>(parse(line)); }

TEST(CLIArguments, refusesWithTheMessageOfTheFirstRuleBroken) {
    const std::pair<const char*, const char*> cases[] = {
        {"bogus", "Unknown command: bogus"},
        {"Sign a.pkg", "Unknown command: Sign"},
        {"identities --all", "Unknown identities option: --all"},
        {"components -v a.pkg", "Unknown components option: -v"},
        {"components a.pkg b.pkg", "components requires exactly one .pkg input"},
        {"components --json", "components requires exactly one .pkg input"},
        {"components a.dmg", "components requires a .pkg input"},
        {"dmg-to-pkg", "Missing input file"},
        {"dmg-to-pkg --bogus", "Unknown option: --bogus"},
        {"sign -", "Unknown option: -"},
        {"recompress a.pkg --bogus -h", "Unknown option: --bogus"},
        {"recompress a.pkg --unsigned help", "Expected one input file, got: help"},
        {"recompress a.pkg --sign", "--sign requires a value"},
        {"sign a.pkg --sign X --unsigned", "--sign and --unsigned are mutually exclusive"},
        {"sign a.pkg --unsigned", "The sign command requires --sign <identity>"},
        {"sign a.pkg --sign X --min-os 13.0", "Compression options do not apply to the sign command"},
        {"sign a.pkg --sign X --legacy-compression", "Compression options do not apply to the sign command"},
        {"recompress a.pkg", "Choose --sign <identity> or explicitly pass --unsigned"},
        {"recompress a.pkg --unsigned --min-os 13 --legacy-compression",
         "--min-os cannot be combined with --legacy-compression"},
        {"sign a.pkg --sign X --interactive", "--interactive only applies to dmg-to-pkg"},
        {"dmg-to-pkg a.dmg --unsigned --interactive --json", "--interactive cannot be combined with --json"},
        {"dmg-to-pkg a.dmg --unsigned --allow-untimestamped-signature",
         "--allow-untimestamped-signature requires --sign <identity>"},
        {"dmg-to-pkg a.dmg --unsigned --remove-component-id com.x", "--remove-component-id only applies to recompress"},
        {"recompress a.pkg --unsigned --remove-component-id a/b", "Invalid component ID: a/b"},
        {"recompress a.dmg --unsigned", "The recompress command requires a .pkg input"},
        {"dmg-to-pkg a.pkg --unsigned", "The dmg-to-pkg command requires a .dmg input"},
        {"sign a --sign X", "The sign command requires a .pkg input"},
    };
    for (const auto& [line, message] : cases) EXPECT_EQ(messageOf(words(line)), message) << line;
    EXPECT_EQ(messageOf({"sign", "a.pkg", "--sign", ""}), "--sign requires a value");
    EXPECT_EQ(messageOf({"recompress", "a.pkg", "--unsigned", "--remove-component-id", "a b"}),
              "Invalid component ID: a b");
}

TEST(CLIArguments, actsOnHelpAndVersionWhereTheyStand) {
    for (const char* line : {"", "-h", "--help bogus", "help", "identities --bogus -h", "components -x --help",
                             "recompress a.pkg --unsigned -h --bogus", "sign --help"}) {
        EXPECT_EQ(parse(line), CLIInvocation(CLIInvocations::Help{})) << line;
    }
    for (const char* line : {"--version x", "version", "sign a.pkg --version"}) {
        EXPECT_EQ(parse(line), CLIInvocation(CLIInvocations::Version{})) << line;
    }
}

TEST(CLIArguments, fillsTheOptionsOfAJob) {
    const CLIRunOptions defaults = options("recompress A.PKG --unsigned");
    EXPECT_EQ(defaults, (CLIRunOptions{.action = PipelineAction::recompressPkg,
                                       .inputURL = "/folder/in/A.PKG",
                                       .outputDirectory = "/folder/in"}));
    const CLIRunOptions all =
        options("recompress --json --sign A --sign --unsigned ../x/./a.pkg --output-dir /y --output-dir out "
                "--min-os 13.0 --allow-untrusted --allow-untimestamped-signature --bundle-inventory "
                "--remove-component-id com.b --remove-component-id com.á_1-2 --remove-component-id com.b "
                "--require-output-below 1kib --require-output-below 2KiB");
    EXPECT_EQ(all, (CLIRunOptions{.action = PipelineAction::recompressPkg,
                                  .inputURL = "/folder/x/a.pkg",
                                  .outputDirectory = "/folder/in/out",
                                  .signingIdentity = "--unsigned",
                                  .minOSVersion = "13.0",
                                  .allowUntrustedInput = true,
                                  .allowUntimestampedSignature = true,
                                  .writeBundleInventory = true,
                                  .componentIdentifiersToRemove = {"com.b", "com.á_1-2"},
                                  .maximumOutputBytesExclusive = 2048,
                                  .json = true}));
    EXPECT_FALSE(options("dmg-to-pkg a.dmg --unsigned --legacy-compression").modernCompression);
    EXPECT_EQ(options("sign ~/a.pkg --sign X").inputURL, FileURL(std::getenv("HOME")) / "a.pkg");
    EXPECT_EQ(options("sign ~nobody-of-that-name/a.pkg --sign X").inputURL, "/folder/in/~nobody-of-that-name/a.pkg");
    EXPECT_EQ(parse("components --json a.pkg"),
              CLIInvocation(CLIInvocations::Components{.inputURL = "/folder/in/a.pkg", .json = true}));
    EXPECT_EQ(parse("identities --json --json"), CLIInvocation(CLIInvocations::Identities{.json = true}));
}

TEST(CLIArguments, readsByteSizes) {
    const std::pair<const char*, std::uint64_t> good[] = {
        {"2GiB", 2147483648},
        {" 512mib ", 536870912},
        {"100", 100},
        {"100B", 100},
        {"+7", 7},
        {"17179869183GiB", 17179869183ULL << 30},
        {"\t3KIB\n", 3 * 1024},
        {"18446744073709551615", std::numeric_limits<std::uint64_t>::max()},
    };
    for (const auto& [text, size] : good) EXPECT_EQ(CLIArgumentParser::parseByteSize(text), size) << text;
    const std::pair<const char*, const char*> bad[] = {
        {"0", "Invalid"},       {"0GiB", "Invalid"},
        {"1.5GiB", "Invalid"},  {"2 GiB", "Invalid"},
        {"2GB", "Invalid"},     {"-5", "Invalid"},
        {"++5", "Invalid"},     {"GiB", "Invalid"},
        {"1_000", "Invalid"},   {"٣", "Invalid"},
        {"0x10", "Invalid"},    {"18446744073709551616", "Invalid"},
        {" 2 gib ", "Invalid"}, {"17179869184GiB", "too large"},
    };
    for (const auto& [text, kind] : bad) {
        const std::string message = std::string(kind) == "Invalid" ? "Invalid byte size: " : "Byte size is too large: ";
        EXPECT_EQ(messageOf({"sign", "a.pkg", "--sign", "X", "--require-output-below", text}), message + text);
    }
}

TEST(CLIArguments, alignsTheHelpText) {
    const std::string_view usage = CLIArgumentParser::usage;
    EXPECT_EQ(std::count(usage.begin(), usage.end(), '\n'), 24);
    EXPECT_TRUE(usage.ends_with("--version                 Show the Corvane version"));
}

} // namespace
} // namespace corvane
