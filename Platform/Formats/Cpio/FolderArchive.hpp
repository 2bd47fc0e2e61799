#pragma once

#include "Support/FileURL.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <stop_token>
#include <string_view>

namespace corvane::Cpio {

/// Writes a folder with all that is in it as an archive in the octal form, its root as ".". Entries are sorted by name
/// and numbered in order, so the same tree gives the same bytes. Modes and times are those on disk, owners are 0: the
/// number of whoever packs a folder means nothing on another computer. A companion "._NAME" that stands beside NAME
/// carries its attributes: it follows NAME and all below it, with the mode of a plain file and NAME's time, and no
/// folder counts it as a child.
/// @param latestTime times after this one, in seconds since 1970, are set to it
/// @param sink receives the archive's bytes
/// @throws FileError; FormatError for what an archive cannot hold; CancellationError
void archiveFolder(const FileURL& folder, std::optional<std::uint64_t> latestTime, const std::stop_token& stop,
                   const std::function<void(std::string_view)>& sink);

} // namespace corvane::Cpio
