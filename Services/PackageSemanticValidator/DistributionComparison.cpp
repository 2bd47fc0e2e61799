#include "Services/PackageSemanticValidator/DistributionComparison.hpp"

#include "Services/PackageSemanticValidator/CanonicalXML.hpp"
#include "Services/PackageSemanticValidator/Differences.hpp"
#include "Support/Text.hpp"

namespace corvane::PackageSemanticValidator {
namespace {

constexpr const char* installSize = "installKBytes";

/// "Tool.pkg" for a reference with the text "#Tool.pkg"; nothing for a reference by identifier only.
std::optional<std::string> embeddedArchiveName(const XML::Node& reference) {
    const std::string text = Text::trimmingWhitespaceAndNewlines(reference.text());
    if (!text.starts_with('#')) return std::nullopt;
    return text.substr(1);
}

std::optional<std::string> payloadInstallSize(const FileURL& component) {
    const auto packageInfo = XML::Document::read(component / "PackageInfo");
    const auto payload = packageInfo.root().firstElement("payload");
    return payload ? payload->attribute(installSize) : std::nullopt;
}

void requireInstallSize(const std::string& archiveName, const std::string& told, const ComponentFolders& components) {
    const auto component = components.find(archiveName);
    if (component == components.end()) {
        throw mismatch("Distribution component reference", archiveName, "missing component");
    }
    const auto size = payloadInstallSize(component->second);
    if (size != told) {
        throw mismatch("Distribution installKBytes for " + archiveName, size.value_or("absent from PackageInfo"), told);
    }
}

} // namespace

void compareDistribution(const std::optional<FileURL>& original, const std::optional<FileURL>& rebuilt,
                         const ComponentFolders& rebuiltComponents) {
    if (original.has_value() != rebuilt.has_value()) {
        throw mismatch("Distribution metadata", presence(original), presence(rebuilt));
    }
    if (!original) return;
    const auto [originalXML, originalSizes] = canonicalDistributionXML(*original, nullptr);
    const auto [rebuiltXML, rebuiltSizes] = canonicalDistributionXML(*rebuilt, &rebuiltComponents);
    requireSameNames("Distribution installKBytes fields", originalSizes, rebuiltSizes);
    if (Text::canonicallyEqual(originalXML, rebuiltXML)) return;
    const auto [left, right] = firstDifferenceSummary(originalXML, rebuiltXML);
    throw mismatch("Distribution metadata", left, right);
}

CanonicalDistribution canonicalDistributionXML(const FileURL& url, const ComponentFolders* components) {
    const auto document = XML::Document::read(url);
    CanonicalDistribution result;
    for (const XML::Node& reference : document.query("//pkg-ref")) {
        const auto archiveName = embeddedArchiveName(reference);
        if (!archiveName) continue;
        if (const auto size = reference.attribute(installSize)) {
            result.componentsWithInstallSize.insert(*archiveName);
            if (components != nullptr) requireInstallSize(*archiveName, *size, *components);
        }
        reference.removeAttribute(installSize);
    }
    normalizeXMLTree(document.root());
    result.xml = document.root().serialized();
    return result;
}

} // namespace corvane::PackageSemanticValidator
