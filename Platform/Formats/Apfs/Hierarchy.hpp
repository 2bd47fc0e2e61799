#pragma once

#include "Platform/Formats/Apfs/FileTree.hpp"

#include <functional>
#include <string>

namespace corvane::Apfs {

/// Calls a function with every name of the volume and its inode, a folder before what is in it and names in the order
/// of their bytes; the root, ".", first. What stands outside the root, as the private folder, is hidden.
/// @throws FormatError when the entries form no tree: a folder in two places, one that is not there, an inode that
/// nothing names
void walkHierarchy(const FileTree& tree, const std::function<void(std::string path, const Inode& inode)>& visit);

} // namespace corvane::Apfs
