// Makes component packages, and the lists that describe the bundles in them.

#include "Platform/Tools/BuildingTool.hpp"
#include "Platform/Tools/ComponentBuilding.hpp"
#include "Platform/Tools/OptionList.hpp"
#include "Platform/Tools/Tool.hpp"
#include "Support/Text.hpp"

namespace corvane::Tools {
namespace {

constexpr const char* usage =
    "Usage: pkgbuild --analyze --root ROOT LIST\n"
    "       pkgbuild --root ROOT --identifier ID [--component-plist LIST] [--version VERSION]\n"
    "                [--install-location FOLDER] [--scripts FOLDER] [--ownership recommended]\n"
    "                [--compression legacy | --compression latest --min-os-version VERSION] PACKAGE\n"
    "       pkgbuild --nopayload with the same options, but for the list: scripts only";

/// The mark of the toolchain in what it makes.
constexpr const char* generatorVersion = "Corvane-" CORVANE_VERSION;

void report(const std::string& step) { print(Text::printable("pkgbuild: " + step) + "\n"); }

[[noreturn]] void refuse(const std::string& problem) { throw UsageError(problem + "\n" + usage); }

void requireAbsent(const OptionList& options, const std::vector<std::string>& names, const std::string& where) {
    for (const std::string& name : names) {
        if (options.has(name)) refuse(name + " has no meaning " + where + ".");
    }
}

bool usesBlocks(const OptionList& options) {
    const std::string compression = options.value("--compression").value_or("legacy");
    if (compression != "legacy" && compression != "latest") refuse("Unknown compression: " + compression);
    if (compression == "latest" && !options.has("--min-os-version")) {
        refuse("--compression latest needs --min-os-version, since old systems cannot open it.");
    }
    return compression == "latest";
}

std::optional<FileURL> url(const OptionList& options, const std::string& name) {
    const auto value = options.value(name);
    if (!value) return std::nullopt;
    if (value->empty()) refuse(name + " needs a value.");
    return *value;
}

ComponentRequest request(const OptionList& options) {
    if (options.value("--ownership").value_or("recommended") != "recommended") {
        refuse("The only --ownership is \"recommended\".");
    }
    if (options.value("--identifier").value_or("").empty()) refuse("--identifier is missing.");
    if (options.has("--nopayload")) {
        requireAbsent(options, {"--root", "--component-plist"}, "without a payload");
    } else if (!options.has("--root")) {
        refuse("Neither --root nor --nopayload is given.");
    }
    return {.info = {.identifier = *options.value("--identifier"),
                     .version = options.value("--version").value_or("0"),
                     .installLocation = options.value("--install-location"),
                     .minimumSystemVersion = options.value("--min-os-version"),
                     .generatorVersion = generatorVersion},
            .root = url(options, "--root"),
            .componentList = url(options, "--component-plist"),
            .scripts = url(options, "--scripts"),
            .usesBlocks = usesBlocks(options)};
}

int analyze(const OptionList& options, const FileURL& list) {
    requireAbsent(options,
                  {"--identifier", "--version", "--install-location", "--scripts", "--component-plist", "--compression",
                   "--min-os-version", "--nopayload", "--ownership"},
                  "together with --analyze");
    const auto root = url(options, "--root");
    if (!root) refuse("--root is missing.");
    return runBuilding("pkgbuild", [&](const std::stop_token& stop) { analyzeRoot(*root, list, stop, &report); });
}

} // namespace

int pkgbuild(const Arguments& arguments) {
    const OptionList options(arguments,
                             {"--root", "--component-plist", "--identifier", "--version", "--install-location",
                              "--scripts", "--ownership", "--compression", "--min-os-version"},
                             {"--analyze", "--nopayload"}, usage);
    if (options.operands().size() != 1) refuse("Expected one file to write.");
    const FileURL output = options.operands().front();
    if (options.has("--analyze")) return analyze(options, output);
    const ComponentRequest component = request(options);
    return runBuilding("pkgbuild", [&](const std::stop_token& stop) {
        requireWritable(output);
        buildComponent(component, output, stop, &report);
        report("Wrote package to " + output.string());
    });
}

} // namespace corvane::Tools
