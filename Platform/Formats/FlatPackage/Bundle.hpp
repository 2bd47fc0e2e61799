#pragma once

#include "Platform/Formats/FolderTree.hpp"

#include <optional>
#include <string>
#include <vector>

namespace corvane::FlatPackage {

/// An application, framework, plug-in ... in a payload.
struct Bundle {
    /// From the payload's root, without "./" in front.
    std::string path;
    /// CFBundleIdentifier.
    std::string identifier;
    /// CFBundleShortVersionString and CFBundleVersion.
    std::optional<std::string> shortVersion;
    std::optional<std::string> version;
    std::optional<std::string> sourceVersion;
    std::optional<std::string> buildVersion;
    /// It lies in another bundle of the payload.
    bool isNested = false;

    bool isApplication() const { return pathExtension(path) == "app"; }
};

/// The bundles of a tree, each before those that lie in it. A folder is one, whatever its name, when an Info.plist with
/// an identifier stands in its Contents or Resources, links within the tree followed; of several ways to one Info.plist
/// the first counts. Folders whose Info.plist cannot be read as a property list are none.
/// @throws CancellationError
std::vector<Bundle> findBundles(const FolderTree& tree, const std::stop_token& stop);

} // namespace corvane::FlatPackage
