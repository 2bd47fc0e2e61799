#pragma once

#include "Platform/Formats/Cpio/FolderArchive.hpp"
#include "Platform/Formats/FolderTree.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

namespace corvane::FlatPackage {

/// Writes the Bom of a payload: what its archive says, entry by entry. Owners are 0, as there.
/// @param checksums those that the archive's writing gave for the same tree
/// @param latestTime as for the archive
/// @throws FormatError for what a Bom cannot hold; what the sink throws
void writePayloadBom(const FolderTree& tree, const Cpio::FolderChecksums& checksums,
                     std::optional<std::uint64_t> latestTime, const std::function<void(std::string_view)>& sink);

} // namespace corvane::FlatPackage
