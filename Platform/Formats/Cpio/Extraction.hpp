#pragma once

#include "Platform/Formats/Cpio/Reader.hpp"
#include "Platform/Formats/ExtractionFolder.hpp"

#include <string>

namespace corvane::Cpio {

/// Extracts all entries below a path of the folder; the archive's root becomes the folder at that path. Names of one
/// file become hard links again. @throws what the reader and the folder throw; FormatError for devices and sockets,
/// and for links whose contents differ
void extract(Reader& archive, ExtractionFolder& folder, const std::string& path);

} // namespace corvane::Cpio
