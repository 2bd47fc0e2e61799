#pragma once

#include "Platform/Formats/CodeResources/ResourceRules.hpp"
#include "Support/FileURL.hpp"

#include <string>
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

/// What stands below the resource root, as the rules treat it: a folder at a place for nested code with a dot in its
/// name is one resource and not entered, other folders are entered and are no resources, what is not sealed is left
/// out. A valid AppleDouble file "._NAME" beside NAME holds the attributes of NAME and is no resource. Sorted by path.
/// Sockets, devices and folders that cannot be read are told as such wherever the rules would look at them.
/// @throws FileError when the root cannot be read, FormatError for paths deeper than `depthLimit`
std::vector<FoundResource> scan(const FileURL& root, const ResourceRules& rules);

/// Whether the rules seal the item at a path from the root on: neither it nor a folder above it is left out.
bool isSealed(const ResourceRules& rules, std::string_view path);

} // namespace corvane::CodeResources
