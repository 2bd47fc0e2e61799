#pragma once

#include "Platform/Formats/Apfs/Object.hpp"
#include "Platform/Formats/Apfs/ObjectMap.hpp"

#include <cstdint>
#include <string>

namespace corvane::Apfs {

/// The volume of a container that a user sees: the first that is no part of a system. As of the newest checkpoint;
/// snapshots are passed over.
struct VolumeState {
    std::string name;
    /// Whether directory records carry hashes of their names.
    bool hasHashedNames = false;
    /// Address and number of the file tree's root.
    std::uint64_t root = 0;
    std::uint64_t rootIdentifier = 0;
    /// Of the file tree's nodes.
    ObjectMap map;
};

/// Whether a disk begins as a container does.
bool isContainer(const RandomAccess& disk);

/// Bytes of a container's blocks. @throws FormatError when there is no container
std::uint32_t blockSize(const RandomAccess& disk);

/// @throws FormatError, also for what is not supported: encrypted and sealed volumes and Fusion drives, by these names
VolumeState readVolumeState(const ObjectReader& objects);

} // namespace corvane::Apfs
