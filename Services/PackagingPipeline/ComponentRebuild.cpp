#include "Services/PackagingPipeline/ComponentRebuild.hpp"

#include "Services/PackageSemanticValidator/PackageInfoMetadata.hpp"
#include "Services/PackagingPipeline/ComponentList.hpp"
#include "Support/FileManager.hpp"
#include "Support/UUID.hpp"
#include "Support/XML.hpp"

#include <map>

namespace corvane::Packaging {
namespace {

using Arguments = std::vector<std::string>;
using AttributeMap = std::map<std::string, std::string>;

constexpr const char* pkgbuild = "/usr/bin/pkgbuild";
constexpr const char* pkgutil = "/usr/sbin/pkgutil";

/// The attributes of the first `pkg-info` element; what stands behind it in the file does not count.
AttributeMap packageInfoAttributes(const FileURL& url) {
    std::string content;
    try {
        content = FileManager::readFile(url, XML::Document::sizeLimit);
    } catch (const FileError&) { // as a file without the element
    }
    AttributeMap found;
    XML::forEachElement(content, [&](const std::string& name, const XML::Attributes& attributes) {
        if (name != "pkg-info") return true;
        found.insert(attributes.begin(), attributes.end());
        return false;
    });
    if (found.empty()) throw PipelineError::invalidInput("Cannot parse PackageInfo");
    return found;
}

/// What the build of a component needs to know of it.
struct ComponentAttributes {
    std::string identifier;
    std::string version;
    std::string installLocation;
    std::string postinstallAction;

    explicit ComponentAttributes(const AttributeMap& attributes)
        : identifier(value(attributes, "identifier", "")),
          version(value(attributes, "version", "0")),
          installLocation(value(attributes, "install-location", "/")),
          postinstallAction(attributes.contains("postinstall-action") ? attributes.at("postinstall-action") : "none") {
        if (identifier.empty()) throw PipelineError::invalidInput("Cannot read identifier from PackageInfo");
    }

  private:
    static std::string value(const AttributeMap& attributes, const std::string& name, const std::string& byDefault) {
        const auto found = attributes.find(name);
        return found == attributes.end() || found->second.empty() ? byDefault : found->second;
    }
};

void append(Arguments& arguments, const Arguments& more) {
    arguments.insert(arguments.end(), more.begin(), more.end());
}

Arguments commonArguments(const Context& context, const ComponentAttributes& component, const FileURL& folder) {
    Arguments arguments{"--identifier",    component.identifier, "--version",
                        component.version, "--install-location", component.installLocation};
    append(arguments, context.compressionArguments());
    const FileURL scripts = folder / "Scripts";
    if (FileManager::isDirectory(scripts)) append(arguments, {"--scripts", scripts.string()});
    return arguments;
}

/// The arguments for what goes into the package: the payload and which bundles are in it, or that there is none.
Arguments payloadArguments(const Context& context, const FileURL& payload, const FileURL& scratch) {
    if (!FileManager::isDirectory(payload)) return {"--nopayload"};
    const FileURL list = scratch / "component.plist";
    context.runChecked(pkgbuild, {"--analyze", "--root", payload.string(), list.string()});
    Arguments arguments{"--root", payload.string()};
    if (disableRelocation(list)) append(arguments, {"--component-plist", list.string()});
    return arguments;
}

} // namespace

void rebuildComponent(const Context& context, const FileURL& componentDirectory, const FileURL& outputPkg,
                      bool hasDistribution) {
    const FileURL packageInfo = componentDirectory / "PackageInfo";
    if (!FileManager::fileExists(packageInfo)) {
        throw PipelineError::invalidInput("Missing PackageInfo in " + lastPathComponent(componentDirectory));
    }
    const ComponentAttributes component(packageInfoAttributes(packageInfo));
    if (component.postinstallAction != "none" && !hasDistribution) {
        context.log("WARNING: postinstall-action='" + component.postinstallAction + "' on " + component.identifier +
                    " is NOT preserved by pkgbuild");
    }
    const Arguments common = commonArguments(context, component, componentDirectory);
    const FileURL scratch = context.workDirectory / ("component-" + makeUUID());
    FileManager::createDirectory(scratch);
    const FileURL raw = scratch / "raw.pkg";
    Arguments build = payloadArguments(context, componentDirectory / "Payload", scratch);
    append(build, common);
    build.push_back(raw.string());
    context.runChecked(pkgbuild, build);

    const FileURL expanded = scratch / "raw-expanded";
    context.runChecked(pkgutil, {"--expand", raw.string(), expanded.string()});
    const PipelineConfiguration& configuration = context.configuration;
    PackageSemanticValidator::mergePackageInfo(packageInfo, expanded / "PackageInfo", configuration.modernCompression,
                                               configuration.minOSVersion);
    PackageSemanticValidator::preserveVendorBOM(componentDirectory, expanded);
    context.runChecked(pkgutil, {"--flatten", expanded.string(), outputPkg.string()});
    context.log("Rebuilt " + component.identifier + " (" + component.version + ")");
}

} // namespace corvane::Packaging
