#include "Services/PackageChangeReport.hpp"

#include "Models/CorvaneVersion.hpp"
#include "Services/PackageComponentJSON.hpp"
#include "Support/FileManager.hpp"
#include "Support/Text.hpp"

namespace corvane::PackageChangeReport {

JSONValue Report::encoded() const {
    return {{"schemaVersion", schemaVersion},
            {"generatedBy", generatedBy},
            {"sourcePackage", sourcePackage},
            {"outputPackage", outputPackage},
            {"removedComponents", corvane::encoded(removedComponents)}};
}

void write(const FileURL& inputURL, const FileURL& outputURL,
           const std::vector<PackageComponentDescriptor>& removedComponents, const FileURL& destination) {
    const Report report{.generatedBy = "Corvane " + std::string(CorvaneVersion::current),
                        .sourcePackage = Text::decodedUTF8(lastPathComponent(inputURL)),
                        .outputPackage = Text::decodedUTF8(lastPathComponent(outputURL)),
                        .removedComponents = removedComponents};
    FileManager::writeFileAtomically(destination, prettyJSON(report.encoded()) + "\n");
}

} // namespace corvane::PackageChangeReport
