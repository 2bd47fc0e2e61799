#pragma once

#include "Platform/Formats/FlatPackage/PackageInfo.hpp"
#include "Support/XML.hpp"

#include <map>
#include <string>
#include <vector>

namespace corvane::FlatPackage {

/// The file names of the packages that a Distribution refers to, in its order, each once.
/// @throws FormatError for a reference that can be the name of no file
std::vector<std::string> referencedPackages(const XML::Document& distribution);

/// The Distribution of a product that holds the packages, as text. The document's own text and layout stay.
///
/// A document whose references all name packages within the product ("#NAME") comes from a product; there only the
/// sizes that it states for them are brought up to date. In any other one the references become such, and what the
/// installer wants to know of each package is filled in: version, sizes, and the bundles in an element of its own.
/// @param packages by file name, for every reference
std::string productDistribution(const XML::Document& distribution,
                                const std::map<std::string, PackageSummary>& packages);

} // namespace corvane::FlatPackage
