#pragma once

#include "Platform/Mounts/MountRegistry.hpp"

#include <string>
#include <vector>

/// Attached images as the tools print them.
namespace corvane::Tools {

/// "/dev/disk4s1"
std::string deviceName(const MountRecord& mount, const DiskEntity& entity);
/// A line for each piece of the disk: device, kind, and mount point where it is mounted.
std::string entityTable(const MountRecord& mount);
/// A block of lines for each image.
std::string imageListing(const std::vector<MountRecord>& mounts);
/// The property list that programs read.
std::string imageList(const std::vector<MountRecord>& mounts);

} // namespace corvane::Tools
