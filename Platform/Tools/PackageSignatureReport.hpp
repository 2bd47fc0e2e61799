#pragma once

#include "Support/FileURL.hpp"

namespace corvane::Tools {

/// Prints what is known of a package's signature, as `pkgutil --check-signature` does, and returns the exit status: 0
/// for a package whose signature holds and whose signer is trusted, else 1.
int reportPackageSignature(const FileURL& package);

} // namespace corvane::Tools
