#pragma once

#include "Support/FileURL.hpp"

#include <optional>
#include <stop_token>

namespace corvane::Tools {

/// Makes a product package of component packages, whose data stay the bytes that they are.
/// @param packageFolder where the packages are that the Distribution names; what is not there is taken from the working
///        folder
/// @param resources a folder whose content becomes the product's resources
/// @throws FileError; FormatError, also for a package that is missing or no component; XML::Error; CancellationError
void buildProduct(const FileURL& distribution, const FileURL& packageFolder, const std::optional<FileURL>& resources,
                  const FileURL& product, const std::stop_token& stop);

} // namespace corvane::Tools
