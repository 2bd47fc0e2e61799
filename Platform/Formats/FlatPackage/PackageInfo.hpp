#pragma once

#include "Platform/Formats/FlatPackage/ComponentList.hpp"
#include "Support/XML.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace corvane::FlatPackage {

/// What a component package says about itself.
struct PackageInfo {
    std::string identifier;
    std::string version = "0";
    std::optional<std::string> installLocation;
    /// The oldest system that can open the payload.
    std::optional<std::string> minimumSystemVersion;
    /// Of the tool that makes the package.
    std::string generatorVersion;
    /// Entries of the payload, root and companions included; 0 without a payload.
    std::uint64_t numberOfFiles = 0;
    std::uint64_t installKBytes = 0;
    std::vector<BundleComponent> components;
    bool hasPreinstall = false;
    bool hasPostinstall = false;
};

/// The document as text, in the platform's own order and layout.
/// @throws XML::Error for texts that XML cannot hold
std::string serialized(const PackageInfo& info);

/// What a product repeats of a component's document.
struct PackageSummary {
    std::string identifier;
    std::string version;
    /// As it stands there.
    std::string installKBytes = "0";
    std::vector<Bundle> bundles;
};

/// @param name how errors call the document
/// @throws FormatError when it does not describe a component
PackageSummary summarize(const XML::Document& packageInfo, const std::string& name);

/// The versions of a bundle, as a PackageInfo and a Distribution write them.
XML::Attributes versionAttributes(const Bundle& bundle);

} // namespace corvane::FlatPackage
