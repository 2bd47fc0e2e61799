#include "Services/PackageSemanticValidator/PackageInfoMetadata.hpp"

#include "Services/PackageSemanticValidator/CanonicalXML.hpp"
#include "Services/PackageSemanticValidator/Differences.hpp"
#include "Services/PackageSemanticValidator/MinimumVersion.hpp"
#include "Support/FileManager.hpp"
#include "Support/Text.hpp"

namespace corvane::PackageSemanticValidator {
namespace {

constexpr const char* generatorVersion = "generator-version";
constexpr const char* minimumSystemVersion = "minimumSystemVersion";

/// Removes what recompression may change.
void normalizePackageInfo(const XML::Node& root) {
    root.removeAttribute(generatorVersion);
    root.removeAttribute(minimumSystemVersion);
    setAttribute("relocatable", "false", root);
    if (const auto payload = root.firstElement("payload")) {
        for (const auto& [name, value] : payload->attributes()) payload->removeAttribute(name);
    }
}

std::string canonicalPackageInfoXML(const XML::Node& root) {
    normalizePackageInfo(root);
    normalizeXMLTree(root);
    return root.serialized();
}

} // namespace

void mergePackageInfo(const FileURL& originalURL, const FileURL& generatedURL, bool modernCompression,
                      const std::string& requestedMinOS) {
    const auto original = XML::Document::read(originalURL);
    const auto generated = XML::Document::read(generatedURL);
    const XML::Node root = original.root();
    if (root.name() != "pkg-info" || generated.root().name() != "pkg-info") {
        throw PipelineError::invalidInput("Cannot parse PackageInfo while preserving metadata");
    }
    const auto newPayload = generated.root().firstElement("payload");
    if (!newPayload) throw PipelineError::invalidInput("Rebuilt PackageInfo has no payload metadata");
    if (const auto payload = root.firstElement("payload")) {
        payload->replaceByCopy(*newPayload);
    } else {
        root.prependCopy(*newPayload);
    }
    if (const auto version = generated.root().attribute(generatorVersion)) {
        setAttribute(generatorVersion, *version, root);
    }
    setAttribute("relocatable", "false", root);
    if (modernCompression) {
        const std::string version = stricterVersion(root.attribute(minimumSystemVersion), requestedMinOS);
        setAttribute(minimumSystemVersion, version, root);
    }
    FileManager::writeFile(generatedURL, original.serialized(true));
}

void preserveVendorBOM(const FileURL& originalComponent, const FileURL& rebuiltComponent) {
    const bool isOriginal = FileManager::fileExists(originalComponent / "Bom");
    const bool isRebuilt = FileManager::fileExists(rebuiltComponent / "Bom");
    if (isOriginal != isRebuilt) {
        throw mismatch("BOM presence in " + lastPathComponent(originalComponent), presence(isOriginal),
                       presence(isRebuilt));
    }
    if (isOriginal) FileManager::copyItem(originalComponent / "Bom", rebuiltComponent / "Bom");
}

void comparePackageInfo(const FileURL& original, const FileURL& rebuilt, bool modernCompression,
                        const std::string& requestedMinOS, const std::string& componentName) {
    const auto originalInfo = XML::Document::read(original);
    const auto rebuiltInfo = XML::Document::read(rebuilt);
    const auto rebuiltMinimum = rebuiltInfo.root().attribute(minimumSystemVersion);
    auto expectedMinimum = originalInfo.root().attribute(minimumSystemVersion);
    if (modernCompression) expectedMinimum = stricterVersion(expectedMinimum, requestedMinOS);
    if (expectedMinimum != rebuiltMinimum) {
        throw mismatch("minimumSystemVersion in " + componentName, expectedMinimum.value_or("absent"),
                       rebuiltMinimum.value_or("absent"));
    }
    const std::string originalXML = canonicalPackageInfoXML(originalInfo.root());
    const std::string rebuiltXML = canonicalPackageInfoXML(rebuiltInfo.root());
    if (Text::canonicallyEqual(originalXML, rebuiltXML)) return;
    const auto [left, right] = firstDifferenceSummary(originalXML, rebuiltXML);
    throw mismatch("PackageInfo semantics in " + componentName, left, right);
}

} // namespace corvane::PackageSemanticValidator
