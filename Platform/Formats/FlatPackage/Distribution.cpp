#include "Platform/Formats/FlatPackage/Distribution.hpp"

#include "Platform/Formats/EntryName.hpp"
#include "Platform/Formats/FlatPackage/Layout.hpp"
#include "Platform/Formats/FlatPackage/PackageReference.hpp"

#include <algorithm>
#include <optional>
#include <set>

namespace corvane::FlatPackage {
namespace {

/// The elements that name packages.
std::vector<XML::Node> namingReferences(const XML::Document& distribution) {
    std::vector<XML::Node> references = distribution.query("//pkg-ref");
    std::erase_if(references, [](const XML::Node& each) { return !PackageReference::packageName(each); });
    return references;
}

bool isInChoice(const XML::Node& reference) {
    for (auto parent = reference.parent(); parent; parent = parent->parent()) {
        if (parent->name() == "choice") return true;
    }
    return false;
}

void updateSizes(const XML::Node& reference, const PackageSummary& package) {
    if (reference.attribute("installKBytes")) reference.setAttribute("installKBytes", package.installKBytes);
}

/// Fills in what the installer reads of a document that a person wrote.
class Completion {
  public:
    explicit Completion(const XML::Document& distribution) : root_(distribution.root()) {
        for (const XML::Node& reference : distribution.query("//pkg-ref")) {
            if (isInChoice(reference) || PackageReference::packageName(reference)) continue;
            details_.emplace(reference.attribute("id").value_or(""), reference);
        }
    }

    void complete(const XML::Node& reference, const std::string& packageName, const PackageSummary& package) {
        const XML::Node details = detailsFor(reference.attribute("id").value_or(""));
        // A reference in a choice, or one that is complete already, keeps its attributes.
        const bool isStated = isInChoice(reference) || PackageReference::isEmbedded(reference);
        const XML::Node& stated = isStated ? details : reference;
        if (!reference.attribute("version")) stated.setAttribute("version", package.version);
        stated.setAttribute("installKBytes", package.installKBytes);
        stated.setAttribute("updateKBytes", "0");
        PackageReference::setEmbedded(reference, packageName);
        if (details.attribute("id") != package.identifier) {
            details.setAttribute("packageIdentifier", package.identifier);
        }
        describe(details, package);
    }

  private:
    /// The element for an identifier that names no package and stands outside of the choices.
    XML::Node detailsFor(const std::string& identifier) {
        const auto found = details_.find(identifier);
        if (found != details_.end()) return found->second;
        root_.appendText("    ");
        const XML::Node details = root_.appendElement("pkg-ref");
        root_.appendText("\n");
        details.setAttribute("id", identifier);
        details_.emplace(identifier, details);
        return details;
    }

    static void describe(const XML::Node& details, const PackageSummary& package) {
        if (details.firstElement("bundle-version")) return;
        const bool isEmpty = details.elements().empty();
        const XML::Node list = details.appendElement("bundle-version");
        for (const Bundle& bundle : package.bundles) {
            const XML::Node element = list.appendElement("bundle");
            for (const auto& [name, value] : versionAttributes(bundle)) element.setAttribute(name, value);
            element.setAttribute("id", bundle.identifier);
            element.setAttribute("path", bundle.path);
        }
        isEmpty ? layOut(details, 1) : layOut(list, 2);
    }

    XML::Node root_;
    std::map<std::string, XML::Node> details_;
};

} // namespace

std::vector<std::string> referencedPackages(const XML::Document& distribution) {
    std::vector<std::string> names;
    std::set<std::string> known;
    for (const XML::Node& reference : namingReferences(distribution)) {
        const std::string name = *PackageReference::packageName(reference);
        EntryName::checkComponent(name, "Distribution");
        if (known.insert(name).second) names.push_back(name);
    }
    return names;
}

std::string productDistribution(const XML::Document& distribution,
                                const std::map<std::string, PackageSummary>& packages) {
    const auto references = namingReferences(distribution);
    std::optional<Completion> completion;
    if (!std::all_of(references.begin(), references.end(), &PackageReference::isEmbedded)) {
        completion.emplace(distribution);
    }
    for (const XML::Node& reference : references) {
        const std::string name = *PackageReference::packageName(reference);
        if (completion) {
            completion->complete(reference, name, packages.at(name));
        } else {
            updateSizes(reference, packages.at(name));
        }
    }
    return documentText(distribution, Declaration::standalone);
}

} // namespace corvane::FlatPackage
