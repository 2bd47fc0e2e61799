#pragma once

#include "Platform/Formats/FlatPackage/PackageInfo.hpp"
#include "Support/FileURL.hpp"

#include <functional>
#include <optional>
#include <stop_token>
#include <string>

namespace corvane::Tools {

/// What to make a component package of.
struct ComponentRequest {
    /// Identifier, version, place and system; everything else of it is computed.
    FlatPackage::PackageInfo info;
    /// The tree to install; nothing for a package without a payload.
    std::optional<FileURL> root;
    /// The component list; nothing for the default rules.
    std::optional<FileURL> componentList;
    std::optional<FileURL> scripts;
    /// Compress the payload in blocks, which current systems open, instead of as one gzip member.
    bool usesBlocks = false;
};

/// Writes the component list that describes the bundles of a tree by the default rules.
/// @param report receives a line for each step
void analyzeRoot(const FileURL& root, const FileURL& list, const std::stop_token& stop,
                 const std::function<void(const std::string&)>& report);

/// Makes a component package. The package states no times but those in its payload and its scripts, where times later
/// than the environment's source date are set to that; so the same tree gives the same bytes.
/// @throws FileError, FormatError, PropertyList::Error, XML::Error, CancellationError
void buildComponent(ComponentRequest request, const FileURL& package, const std::stop_token& stop,
                    const std::function<void(const std::string&)>& report);

} // namespace corvane::Tools
