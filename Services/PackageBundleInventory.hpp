#pragma once

#include "Support/FileURL.hpp"

#include <optional>
#include <string>
#include <vector>

/// Which applications a package installs directly into /Applications.
namespace corvane::PackageBundleInventory {

struct Entry {
    /// The bundle identifier, never empty.
    std::string bundleID;
    /// Absent, or not empty.
    std::optional<std::string> shortVersion;

    bool operator==(const Entry&) const = default;
};

/// @param expandedPackage a package expanded with its payloads
/// @return ascending by identifier and version, each pair once
/// @throws PipelineError (`invalidInput`) for an application that does not say what it is; XML::Error,
///         PropertyList::Error, FileError
std::vector<Entry> entries(const FileURL& expandedPackage);

/// The inventory file's text.
std::string render(const std::vector<Entry>& entries, const std::string& packageName);

} // namespace corvane::PackageBundleInventory
