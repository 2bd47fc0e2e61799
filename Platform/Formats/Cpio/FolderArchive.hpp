#pragma once

#include "Platform/Formats/Bom/Entry.hpp"
#include "Platform/Formats/FolderTree.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <stop_token>
#include <string_view>
#include <vector>

namespace corvane::Cpio {

/// What the one reading of a folder's files tells besides the archive.
struct FolderChecksums {
    /// The POSIX checksum of each file's data, in the order of the tree's entries; 0 for folders and links.
    std::vector<std::uint32_t> files;
    /// The architectures of Mach-O files, by their place among the tree's entries.
    std::map<std::size_t, std::vector<Bom::Architecture>> architectures;
};

/// Writes a folder with all that is in it as an archive in the octal form, its root as ".". Entries are numbered in
/// their order, the names of one file alike, so the same tree gives the same bytes. Modes and times are those on disk,
/// owners are 0: the number of whoever packs a folder means nothing on another computer.
/// @param latestTime times after this one, in seconds since 1970, are set to it
/// @param sink receives the archive's bytes
/// @throws FileError; FormatError for what an archive cannot hold, and for a tree that changes; CancellationError
FolderChecksums archiveFolder(const FolderTree& tree, std::optional<std::uint64_t> latestTime,
                              const std::stop_token& stop, const std::function<void(std::string_view)>& sink);

} // namespace corvane::Cpio
