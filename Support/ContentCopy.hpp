#pragma once

#include "Support/FileURL.hpp"

#include <stop_token>

namespace corvane {

/// Writes everything from the current position of one open file on to the current position of another, within the
/// kernel where it can: file systems that share blocks between files share them. Needs no more memory for large files.
/// The names are for messages. @throws FileError, CancellationError
void copyContent(int input, const FileURL& inputName, int output, const FileURL& outputName,
                 const std::stop_token& stop = {});

} // namespace corvane
