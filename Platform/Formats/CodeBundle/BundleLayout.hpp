#pragma once

#include "Support/FileURL.hpp"
#include "Support/PropertyList.hpp"

#include <optional>
#include <string>
#include <vector>

namespace corvane {

/// Where a bundle keeps what a signature covers. All paths exist unless said otherwise, are made of the path that was
/// given, and have no links below it but a framework's Versions/Current, which is resolved. Only Info.plist and the
/// main executable may be links to files themselves, which a strict look does not allow.
struct BundleLayout {
    enum class Kind {
        /// NAME/Contents/Info.plist: applications, plug-ins, kernel extensions.
        contents,
        /// NAME/Versions/VERSION/Resources/Info.plist: frameworks.
        versioned,
        /// NAME/Resources/Info.plist: one version of a framework.
        resources,
        /// NAME/Info.plist: applications of phones.
        flat,
    };

    Kind kind = Kind::contents;
    /// The folder that was asked for.
    FileURL root;
    /// Of a framework, the version's name.
    std::string version;
    /// The folder from which resources are counted: Contents, Versions/A, or the root itself.
    FileURL resourceRoot;
    /// Absent when there is none.
    std::optional<FileURL> infoPropertyListURL;
    PropertyList::Value infoPropertyList;
    /// Absent when Info.plist names none that is there; then Info.plist stands for the code.
    std::optional<FileURL> executable;

    /// Where the parts of the signature are, whether or not it exists: resourceRoot/_CodeSignature.
    FileURL signatureFolder() const { return resourceRoot / "_CodeSignature"; }
    /// The file of sealed resources: in that folder where it exists, else directly in the resource root.
    FileURL sealedResourcesURL() const;
    /// Where a ticket is stapled: resourceRoot/CodeResources.
    FileURL ticketURL() const { return resourceRoot / "CodeResources"; }
    /// Whether Info.plist says so (CFBundlePackageType is APPL).
    bool isApplication() const;

    /// The layout of a folder; nothing when it is no bundle.
    /// @param version of a framework, in place of the current one
    /// @throws PropertyList::Error for an Info.plist that cannot be read, FileError
    static std::optional<BundleLayout> of(const FileURL& folder, const std::string& version = "");
    /// The bundle whose main executable a file is, if there is one around it. Links are resolved first: the bundle's
    /// paths are made of the file's real one. @throws as `of`
    static std::optional<BundleLayout> whoseExecutableIs(const FileURL& file);

    /// The other versions of a framework, sorted; empty for any other bundle.
    std::vector<std::string> otherVersions() const;

    /// What a strict look at the folder finds wrong with the bundle's root, as `codesign` words it; empty when nothing:
    /// unsealed things beside Contents or in a framework's root, a main executable or Info.plist that is no plain file.
    /// @throws FileError
    std::string structuralProblem() const;
    /// Whether the signature's folder holds anything that is no part of a signature, or is no folder.
    /// @throws FileError
    bool signatureFolderHoldsOthers() const;
};

} // namespace corvane
