#pragma once

#include "Services/PackageComponentDescriptor.hpp"
#include "Support/FileURL.hpp"
#include "Support/JSON.hpp"

#include <cstdint>
#include <string>
#include <vector>

/// The machine-readable record of what a job took out of a package.
namespace corvane::PackageChangeReport {

struct Report {
    std::int64_t schemaVersion = 1;
    /// The product's name and version.
    std::string generatedBy;
    /// File names, without folders.
    std::string sourcePackage;
    std::string outputPackage;
    /// In the order in which their removal was requested.
    std::vector<PackageComponentDescriptor> removedComponents;

    /// An object with one key for each field, named like it.
    JSONValue encoded() const;
};

/// Writes the report as a file that appears whole or not at all: JSON of one value a line, with a final line feed.
/// @throws FileError
void write(const FileURL& inputURL, const FileURL& outputURL,
           const std::vector<PackageComponentDescriptor>& removedComponents, const FileURL& destination);

} // namespace corvane::PackageChangeReport
