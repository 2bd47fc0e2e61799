#pragma once

#include "Platform/Formats/CodeResources/ResourceRules.hpp"
#include "Support/FileURL.hpp"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::CodeResources {

/// Something in a bundle that its seal has to know of.
struct FoundResource {
    /// From the resource root, "Resources/a.txt".
    std::string path;
    enum class Kind { file, link, nestedFolder, unreadableFolder, unsupported };
    Kind kind = Kind::file;
    /// Bytes of a file.
    std::uint64_t size = 0;
};

/// Most folders that a path has.
constexpr std::size_t depthLimit = 512;
/// Most bytes of a path, as on a Mac: the time that a hostile pattern takes grows with them.
constexpr std::size_t pathLimit = 1024;

/// What stands below the resource root, as the rules treat it: a folder at a place for nested code with a dot in its
/// name is one resource and not entered, other folders are entered and are no resources, what is not sealed is left
/// out, and so are links where the rules leave them out. A valid AppleDouble file "._NAME" beside NAME holds the
/// attributes of NAME and is no resource. Sorted by path. Sockets and devices are told as such where the rules seal,
/// folders that cannot be read wherever they are entered.
/// @throws FileError when the root cannot be read, FormatError for paths beyond the limits
std::vector<FoundResource> scan(const FileURL& root, const ResourceRules& rules);

/// Whether an item at a path from the root on is part of the seal: the rules seal it and exclude no folder above it, or
/// it lies in nested code that they seal.
bool isSealed(const ResourceRules& rules, std::string_view path);

} // namespace corvane::CodeResources
