#pragma once

#include "Services/PackageComponentDescriptor.hpp"
#include "Support/JSON.hpp"

#include <vector>

/// Components as JSON: an object each, with one key for each field, named like it.
namespace corvane {

JSONValue encoded(const PackageComponentDescriptor& component);
/// An array.
JSONValue encoded(const std::vector<PackageComponentDescriptor>& components);
/// The reverse for one component; all five keys must be there. @throws nlohmann::json::exception
PackageComponentDescriptor decodedComponent(const JSONValue& object);

} // namespace corvane
