#include "Services/PackagingPipeline/Flows.hpp"
#include "Services/PackagingPipeline/ResultVerification.hpp"
#include "Support/FileManager.hpp"

namespace corvane::Packaging {

FileURL runSignOnly(Context& context) {
    const PipelineConfiguration& configuration = context.configuration;
    FileManager::createPrivateDirectory(context.workDirectory);
    gatekeeperInstallGate(context);
    if (!configuration.signingIdentity) {
        throw PipelineError::invalidInput("Sign-only requires a signing identity in Settings");
    }
    const std::string name = deletingPathExtension(lastPathComponent(configuration.inputURL)).string() + "-signed.pkg";
    const FileURL outputURL = configuration.outputDirectory / name;
    signAndVerify(context, configuration.inputURL, outputURL, std::nullopt, {});
    return outputURL;
}

} // namespace corvane::Packaging
