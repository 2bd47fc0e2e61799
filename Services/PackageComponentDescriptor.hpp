#pragma once

#include "Support/JSON.hpp"

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

    /// An object with one key for each field, named like it.
    JSONValue encoded() const;
    /// The reverse; all five keys must be there. @throws nlohmann::json::exception
    static PackageComponentDescriptor decode(const JSONValue& object);
};

} // namespace corvane
