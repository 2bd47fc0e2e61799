// What a strict look finds in a bundle's folders beside the sealed ones.

#include "Platform/Formats/CodeBundle/BundleLayout.hpp"
#include "Platform/Formats/CodeBundle/FileKind.hpp"
#include "Platform/Formats/CodeSignature/CodeProblem.hpp"
#include "Platform/Formats/CodeSignature/Components.hpp"
#include "Platform/Formats/ExtendedAttributes/ExtendedAttributes.hpp"
#include "Support/FileManager.hpp"

#include <algorithm>
#include <array>

namespace corvane {
namespace {

/// What the Finder and software updates leave in the root of a bundle.
constexpr std::array<std::string_view, 4> toleratedFiles = {".DS_Store", ".LSOverride", "Icon\r",
                                                            ".SoftwareDepot.tracking"};

/// Whether every item of a folder passes; companions hold the attributes of others and are no items.
template <class Test>
bool allPass(const FileURL& folder, Test passes) {
    const auto names = FileKind::sortedNames(folder);
    return std::all_of(names.begin(), names.end(), [&](const std::string& name) {
        return passes(name) || ExtendedAttributes::isCompanion(folder / name);
    });
}

bool rootHoldsOnlyContents(const FileURL& root) {
    return allPass(root, [&](const std::string& name) {
        const FileURL url = root / name;
        if (name == "Contents") return FileKind::isFolder(url);
        const bool isTolerated = std::find(toleratedFiles.begin(), toleratedFiles.end(), name) != toleratedFiles.end();
        return isTolerated && FileKind::isPlainFile(url) && !FileKind::isExecutableFile(url);
    });
}

/// Whether a link's text is the target, with or without "./" in front.
bool isLinkTo(const FileURL& url, const std::string& target) {
    if (!FileKind::isLink(url)) return false;
    const std::string text = FileManager::linkTarget(url);
    return text == target || text == "./" + target;
}

bool isCurrentLink(const FileURL& link, const FileURL& versions) {
    const auto names = FileKind::sortedNames(versions);
    return std::any_of(names.begin(), names.end(), [&](const std::string& name) {
        return FileKind::isFolder(versions / name) && isLinkTo(link, name);
    });
}

bool holdsOnlyVersions(const FileURL& versions) {
    return FileKind::isFolder(versions) && allPass(versions, [&](const std::string& name) {
               return name == "Current" ? isCurrentLink(versions / name, versions)
                                        : FileKind::isFolder(versions / name);
           });
}

bool rootHoldsOnlyVersions(const FileURL& root) {
    return allPass(root, [&](const std::string& name) {
        const FileURL url = root / name;
        if (name == "Versions") return holdsOnlyVersions(url);
        return isLinkTo(url, "Versions/Current/" + name) || (name == "module.map" && FileKind::isPlainFile(url));
    });
}

bool isComponentName(const std::string& name) {
    using CodeSignature::Slot;
    const auto isNameOf = [&](std::uint32_t slot) { return CodeSignature::componentName(Slot{slot}) == name; };
    for (std::uint32_t slot = 0; slot <= static_cast<std::uint32_t>(Slot::libraryConstraint); ++slot) {
        if (isNameOf(slot)) return true;
    }
    for (std::uint32_t index = 0; index < CodeSignature::alternateCodeDirectoryLimit; ++index) {
        if (isNameOf(static_cast<std::uint32_t>(Slot::alternateCodeDirectories) + index)) return true;
    }
    return isNameOf(static_cast<std::uint32_t>(Slot::signature)) || name == "CodeResources";
}

} // namespace

std::string BundleLayout::structuralProblem() const {
    if (kind == Kind::contents && !rootHoldsOnlyContents(root)) return CodeSignature::CodeProblem::unsealedRoot;
    if (kind == Kind::versioned && !rootHoldsOnlyVersions(root))
        return CodeSignature::CodeProblem::unsealedFrameworkRoot;
    const bool areRegular = (!executable || FileKind::isPlainFile(*executable)) &&
                            (!infoPropertyListURL || FileKind::isPlainFile(*infoPropertyListURL));
    return areRegular ? "" : CodeSignature::CodeProblem::notPlainFile;
}

bool BundleLayout::signatureFolderHoldsOthers() const {
    const FileURL folder = signatureFolder();
    if (!FileKind::exists(folder)) return false;
    return !FileKind::isFolder(folder) || !allPass(folder, [&](const std::string& name) {
        return isComponentName(name) && FileKind::isPlainFile(folder / name);
    });
}

} // namespace corvane
