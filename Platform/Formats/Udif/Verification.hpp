#pragma once

#include "Platform/Formats/RandomAccess.hpp"
#include "Platform/Formats/Udif/BlockTable.hpp"
#include "Platform/Formats/Udif/ChunkedDisk.hpp"
#include "Platform/Formats/Udif/Trailer.hpp"

#include <stop_token>
#include <vector>

namespace corvane::Udif {

/// Compares all checksums with what they cover, on all cores; what has none is passed over, but decoded as well. What
/// was decoded before is not decoded again.
/// @param tables whose chunks, one after another, are those of the disk
/// @throws FormatError naming what differs, or a kind of checksum that is not known; CancellationError
void verify(const RandomAccess& file, const Trailer& trailer, const std::vector<BlockTable>& tables,
            const ChunkedDisk& disk, const std::stop_token& stop);

} // namespace corvane::Udif
