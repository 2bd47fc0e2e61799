#pragma once

#include "Support/FileURL.hpp"

/// Asks the package database of the distribution whose a file is.
namespace corvane::DistributionFile {

/// Where dpkg keeps, for each installed package, the checksums of its files.
inline constexpr const char* packageDatabase = "/var/lib/dpkg/info";

/// True when the file, links resolved, belongs to an installed package and has the content that came with it. False for
/// every other file, and where there is no such database.
bool isUnchanged(const FileURL& file, const FileURL& database = packageDatabase);

} // namespace corvane::DistributionFile
