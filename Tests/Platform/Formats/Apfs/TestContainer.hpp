#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

/// Makes APFS containers of one volume in memory.
namespace corvane::TestSupport {

/// A file, folder or link. Links have their text as data.
struct ContainerItem {
    mode_t mode = 0100644;
    /// Every block stands by itself, those of zeros as holes.
    std::string data{};
    /// Long values get streams.
    std::map<std::string, std::string> attributes{};
    std::uint32_t flags = 0;
    /// Inode of an item before, of which this is another name; all else is then ignored.
    std::uint64_t linkOf = 0;
};

/// By path; folders are given. Inodes count from 16 in the order of the paths.
using ContainerItems = std::map<std::string, ContainerItem>;

/// What stands in which block of 4096 bytes. Block 0 is older than the newest checkpoint.
enum ContainerBlock : std::size_t {
    olderCheckpoint = 1,
    newestCheckpoint,
    containerMap,
    containerMapTree,
    volumeBlock,
    volumeMap,
    volumeMapTree,
    fileTreeRoot,
    firstLeaf,
    firstData = 32,
};

/// The number of the file tree's first leaf in the volume's map.
constexpr std::uint64_t leafIdentifier = 1001;

std::string testContainer(const ContainerItems& items, bool hasHashedNames = true);

/// Puts a number into a block; the checksum follows.
void setField(std::string& container, std::size_t block, std::size_t offset, std::size_t width, std::uint64_t value);
/// Changes all such bytes in the leaves of the file tree to others as long.
void replaceInLeaves(std::string& container, const std::string& found, const std::string& other);

} // namespace corvane::TestSupport
