#pragma once

#include "Platform/Formats/CodeSignature/Components.hpp"

#include <string_view>

namespace corvane::CodeSignature {

/// Reads the blobs that end a signed Mach-O slice. Zero bytes behind them are padding. Blobs of unknown types are
/// passed over. The wrapper of the CMS is taken off; all others keep their headers.
/// @throws FormatError for sizes and offsets that contradict each other, and a type that comes twice
Components readSuperBlob(std::string_view bytes);

} // namespace corvane::CodeSignature
