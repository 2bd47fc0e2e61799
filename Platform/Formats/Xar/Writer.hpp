#pragma once

#include "Platform/Formats/Xar/NewEntry.hpp"

#include <cstdint>
#include <stop_token>
#include <vector>

namespace corvane::Xar {

/// Writes an archive as package tools do: SHA-1 throughout, the contents in the heap in the order given. The file
/// appears whole or not at all.
/// @param creationTime seconds since 1970 that the archive states; the clock is not asked
/// @throws FileError, FormatError, CancellationError
void writeArchive(std::vector<NewEntry> entries, const FileURL& destination, std::int64_t creationTime,
                  const std::stop_token& stop);

} // namespace corvane::Xar
