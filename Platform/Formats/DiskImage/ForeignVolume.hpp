#pragma once

#include "Platform/Formats/RandomAccess.hpp"

#include <string>

namespace corvane {

/// The kinds of the volumes on a disk, or a part of one, that nobody here can read: "FAT", or "NTFS, FAT" for several
/// in a map of the oldest kind. Empty when none is known. @throws what the disk throws
std::string foreignVolumeKinds(const RandomAccess& disk);

} // namespace corvane
