#include "Platform/Tools/PackageSignatureReport.hpp"

#include "Platform/Formats/PackageSignature/SignatureSummary.hpp"
#include "Platform/Tools/Tool.hpp"
#include "Platform/Trust/Keychain.hpp"

namespace corvane::Tools {

int reportPackageSignature(const FileURL& package) try {
    const auto signature = PackageSignature::evaluate(Xar::Archive::openUnverified(package),
                                                      Keychain::ofUser().trustSettings(currentTime()));
    const auto summary = SignatureSummary::of(lastPathComponent(package), signature);
    print(summary.text);
    return summary.isTrusted ? 0 : 1;
} catch (const std::exception& error) {
    printError("Could not open package: " + lastPathComponent(package) + "\n" + error.what() + "\n");
    return 1;
}

} // namespace corvane::Tools
