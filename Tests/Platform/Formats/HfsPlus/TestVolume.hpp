#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <string>

/// Makes volumes of Mac OS Extended in memory.
namespace corvane::TestSupport {

/// A file, folder or link of a volume. Links have their text as data.
struct TestItem {
    /// Kind and permissions.
    mode_t mode = 0100644;
    std::string data{};
    std::string resourceFork{};
    /// 32 bytes, or none for zeros.
    std::string finderInfo{};
    /// Values that do not fit a node get blocks of their own.
    std::map<std::string, std::string> attributes{};
    std::uint32_t owner = 501;
    std::uint32_t group = 20;
    /// Seconds since 1970.
    std::uint32_t modified = 1700000000;
    /// The owner flags, of which 0x20 says that the data is kept compressed.
    std::uint8_t ownerFlags = 0;
    /// Into how many extents data and attributes are cut, as far as they have blocks.
    std::size_t extents = 1;
    /// The path of the file or folder that this is another name of; all else is then ignored.
    std::string linkOf{};
};

/// By path, "Folder/file"; "." may tell of the root. Folders above others are made when they are missing. Names in
/// UTF-8, decomposed; a ":" becomes "/".
using TestTree = std::map<std::string, TestItem>;

struct TestVolumeOptions {
    std::string name = "Test";
    std::uint32_t blockSize = 4096;
    /// Of all trees.
    std::size_t nodeSize = 4096;
    bool isJournaled = false;
    /// Whether names that differ by case are two: the newer form of volume.
    bool isCaseSensitive = false;
};

std::string testVolume(const TestTree& tree, const TestVolumeOptions& options = {});

} // namespace corvane::TestSupport
