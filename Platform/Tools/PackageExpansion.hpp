#pragma once

#include "Support/FileURL.hpp"

#include <stop_token>

namespace corvane::Tools {

/// Expands a flat package into a new folder, which appears complete or not at all. Archives named Scripts, of the
/// product and of each component, become folders; payloads stay files. Every checksum that the package states is
/// verified. The folder is open to its owner only; set-id bits inside it are kept.
/// @throws FileError, FormatError, XML::Error, CancellationError
void expandPackage(const FileURL& package, const FileURL& destination, const std::stop_token& stop);

} // namespace corvane::Tools
