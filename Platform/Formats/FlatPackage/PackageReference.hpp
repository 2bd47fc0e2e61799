#pragma once

#include "Support/XML.hpp"

#include <optional>
#include <string>
#include <string_view>

/// The texts of the pkg-ref elements by which a Distribution names packages.
namespace corvane::FlatPackage::PackageReference {

/// "%20" stands for a blank, and so on; a percent sign without two hexadecimal digits stands for itself.
std::string percentDecoded(std::string_view text);

/// True when the text names a package within the product: "#NAME".
bool isEmbedded(const XML::Node& reference);

/// The file name of the package that the element names, within the product or beside it; nothing when it names none.
std::optional<std::string> packageName(const XML::Node& reference);

/// Makes the element name a package within the product; elements in it stay.
void setEmbedded(const XML::Node& reference, std::string_view packageName);

} // namespace corvane::FlatPackage::PackageReference
