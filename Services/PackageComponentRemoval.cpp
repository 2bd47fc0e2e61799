// Takes components out of a Distribution file.

#include "Models/PipelineModels.hpp"
#include "Services/PackageComponentEditor.hpp"
#include "Support/FileManager.hpp"
#include "Support/Text.hpp"
#include "Support/XML.hpp"

#include <algorithm>
#include <set>

namespace corvane::PackageComponentEditor {
namespace {

using NameSet = std::set<std::string, Text::CanonicalOrder>;

PackageComponentDescriptor onlyComponent(const std::string& identifier,
                                         const std::vector<PackageComponentDescriptor>& all) {
    std::vector<PackageComponentDescriptor> matches;
    std::copy_if(all.begin(), all.end(), std::back_inserter(matches),
                 [&](const auto& component) { return Text::canonicallyEqual(component.identifier, identifier); });
    if (matches.empty()) throw PipelineError::invalidInput("Component ID not found: " + identifier);
    if (matches.size() == 1) return matches.front();
    NameSet names;
    for (const PackageComponentDescriptor& match : matches) names.insert(match.archiveName);
    throw PipelineError::invalidInput("Component ID is ambiguous: " + identifier + " appears in " +
                                      Text::joined(names, ", "));
}

/// What a Distribution says about components that have to go.
class DistributionEdit {
  public:
    DistributionEdit(const std::vector<PackageComponentDescriptor>& components, const FileURL& url)
        : document_(XML::Document::read(url)) {
        for (const PackageComponentDescriptor& component : components) {
            identifiers_.insert(component.identifier);
            archiveNames_.insert(component.archiveName);
        }
    }

    void run() {
        const std::vector<XML::Node> elements = document_.query("//*");
        for (const XML::Node& element : elements) {
            if (element.name() == "choice") removeChoiceIfConcerned(element);
        }
        for (const XML::Node& element : elements) {
            if (element.parent() && (isLineOfRemovedChoice(element) || isReference(element))) element.remove();
        }
        requireNothingLeft();
    }

    std::string result() const { return document_.serialized(true); }

  private:
    static bool hasAttribute(const XML::Node& element, const std::string& name, const NameSet& values) {
        const auto value = element.attribute(name);
        return value && values.contains(*value);
    }

    bool isReference(const XML::Node& element) const {
        return element.name() == "pkg-ref" && hasAttribute(element, "id", identifiers_);
    }

    bool isLineOfRemovedChoice(const XML::Node& element) const {
        return element.name() == "line" && hasAttribute(element, "choice", choices_);
    }

    bool holdsReference(const XML::Node& element) const {
        const auto children = element.elements();
        return std::any_of(children.begin(), children.end(),
                           [&](const XML::Node& child) { return isReference(child) || holdsReference(child); });
    }

    void removeChoiceIfConcerned(const XML::Node& choice) {
        if (!holdsReference(choice) && !hasAttribute(choice, "id", identifiers_)) return;
        choice.remove();
        if (const auto identifier = choice.attribute("id")) choices_.insert(*identifier);
    }

    void requireNothingLeft() const {
        for (const XML::Node& element : document_.query("//*")) {
            if (isReference(element)) {
                throw PipelineError::internalError("Distribution still references a removed component ID");
            }
            if (isLineOfRemovedChoice(element)) {
                throw PipelineError::internalError("Distribution still references a removed choice");
            }
            const std::string text = Text::trimmingWhitespaceAndNewlines(element.text());
            if (text.starts_with('#') && archiveNames_.contains(text.substr(1))) {
                throw PipelineError::internalError("Distribution still references a removed component archive");
            }
        }
    }

    XML::Document document_;
    NameSet identifiers_;
    NameSet archiveNames_;
    /// Identifiers of the choices that were removed.
    NameSet choices_;
};

} // namespace

std::vector<PackageComponentDescriptor> removeComponents(const std::vector<std::string>& identifiers,
                                                         const FileURL& expandedPackage) {
    if (identifiers.empty()) return {};
    const FileURL distribution = expandedPackage / "Distribution";
    if (!FileManager::fileExists(distribution) || FileManager::isDirectory(distribution)) {
        throw PipelineError::invalidInput("Component removal requires a distribution package with a Distribution file");
    }
    const std::vector<PackageComponentDescriptor> all = components(expandedPackage);
    std::vector<PackageComponentDescriptor> removed;
    for (const std::string& identifier : identifiers) {
        PackageComponentDescriptor component = onlyComponent(identifier, all);
        const bool isNamedAgain = std::any_of(removed.begin(), removed.end(), [&](const auto& earlier) {
            return earlier.archiveName == component.archiveName;
        });
        if (!isNamedAgain) removed.push_back(std::move(component));
    }
    DistributionEdit edit(removed, distribution);
    edit.run();
    FileManager::writeFileAtomically(distribution, edit.result());
    return removed;
}

} // namespace corvane::PackageComponentEditor
