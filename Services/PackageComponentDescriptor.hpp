#pragma once

#include <string>
#include <vector>

namespace corvane {

/// One installable component of a flat package.
struct PackageComponentDescriptor {
    /// Name of the component's folder in an expanded distribution package; "component.pkg" for a component package.
    std::string archiveName;
    /// Never empty.
    std::string identifier;
    std::string version;
    std::string installLocation;
    /// Names of the installer scripts, ascending.
    std::vector<std::string> scripts;

    bool operator==(const PackageComponentDescriptor&) const = default;
};

} // namespace corvane
