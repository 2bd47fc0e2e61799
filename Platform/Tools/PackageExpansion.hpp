#pragma once

#include "Support/FileURL.hpp"

#include <stop_token>

namespace corvane::Tools {

/// What becomes of the archives named Payload: files as they are, or folders with what is in them.
enum class Payloads { keep, expand };

/// Expands a flat package into a new folder, which appears complete or not at all. Archives named Scripts, of the
/// product and of each component, become folders, and so do payloads where that is wanted. Every checksum that the
/// package states is verified. The folder is open to its owner only; set-id bits inside it are kept, and all of it
/// belongs to the caller.
/// @throws FileError, FormatError, XML::Error, CancellationError
void expandPackage(const FileURL& package, const FileURL& destination, Payloads payloads, const std::stop_token& stop);

} // namespace corvane::Tools
