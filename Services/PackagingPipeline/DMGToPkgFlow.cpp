// The flow of `dmg-to-pkg`: mounts the vendor's disk image, decides on the application on it, copies that into a
// payload root, and builds a package of it that the installer cannot relocate.

#include "Services/PackagingPipeline/ApplicationTrust.hpp"
#include "Services/PackagingPipeline/ComponentList.hpp"
#include "Services/PackagingPipeline/DiskImageMounting.hpp"
#include "Services/PackagingPipeline/Flows.hpp"
#include "Services/PackagingPipeline/ResultVerification.hpp"
#include "Support/FileManager.hpp"

namespace corvane::Packaging {
namespace {

constexpr const char* pkgbuild = "/usr/bin/pkgbuild";

/// A bundle without the attribute is as good as one that lost it, so nothing that happens here matters.
void dropQuarantine(const Context& context, const FileURL& application) {
    try {
        context.run("/usr/bin/xattr", {"-dr", "com.apple.quarantine", application.string()});
    } catch (const LaunchError&) {
    }
}

/// Returns the payload root, which holds the application and nothing else.
FileURL stage(const Context& context, const VendorApplication& application) {
    context.begin(PipelineStep::stage);
    FileURL root = context.workDirectory / "root";
    FileManager::createDirectory(root);
    const FileURL staged = root / lastPathComponent(application.found);
    context.runChecked("/usr/bin/ditto", {application.working.string(), staged.string()});
    if (!context.keepQuarantine) dropQuarantine(context, staged);
    context.end(PipelineStep::stage);
    return root;
}

/// Returns the unsigned package.
FileURL build(const Context& context, const VendorApplication& application, const FileURL& root) {
    context.begin(PipelineStep::build);
    const FileURL componentPlist = context.workDirectory / "component.plist";
    context.runChecked(pkgbuild, {"--analyze", "--root", root.string(), componentPlist.string()});
    if (!disableRelocation(componentPlist)) {
        throw PipelineError::invalidInput("Component analysis produced no components - cannot pin relocation");
    }
    FileURL package = context.workDirectory / "unsigned.pkg";
    std::vector<std::string> arguments{"--root",
                                       root.string(),
                                       "--component-plist",
                                       componentPlist.string(),
                                       "--identifier",
                                       application.identifier,
                                       "--version",
                                       application.version,
                                       "--install-location",
                                       "/Applications"};
    const std::vector<std::string> compression = context.compressionArguments();
    arguments.insert(arguments.end(), compression.begin(), compression.end());
    arguments.push_back(package.string());
    context.runChecked(pkgbuild, arguments);
    context.end(PipelineStep::build);
    return package;
}

} // namespace

FileURL runDMGToPkg(Context& context) {
    mountDiskImage(context);
    const VendorApplication application = verifyApplication(context, findApplication(context));
    const FileURL root = stage(context, application);
    const FileURL package = build(context, application, root);
    const std::string name = deletingPathExtension(lastPathComponent(application.found)).string();
    const FileURL outputURL = context.configuration.outputDirectory / (name + "-" + application.version + ".pkg");
    signAndVerify(context, package, outputURL, std::nullopt, {});
    return outputURL;
}

} // namespace corvane::Packaging
