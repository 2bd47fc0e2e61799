#pragma once

#include "Platform/Formats/Apfs/Object.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>

namespace corvane::Apfs {

/// What a node's table says of its records.
enum class TreeKind {
    /// Keys and values of 16 bytes.
    objectMap,
    /// Keys and values of any length.
    fileTree,
};

/// Calls a function with the key and the value of every record of a tree, in the order of the keys. No node is read
/// twice, and none deeper than its level allows.
/// @param root address of the root
/// @param addressOf where the child of a given number stands
/// @throws FormatError, and what the functions throw
void walkTree(const ObjectReader& objects, TreeKind kind, std::uint64_t root, std::uint64_t rootIdentifier,
              const std::function<std::uint64_t(std::uint64_t)>& addressOf,
              const std::function<void(const Record& key, const Record& value)>& visit);

} // namespace corvane::Apfs
