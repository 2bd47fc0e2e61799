#pragma once

#include "Platform/Formats/Bom/Store.hpp"

#include <cstdint>
#include <span>
#include <vector>

namespace corvane::Bom {

/// One pair of a tree's leaves: the numbers of two blocks.
struct TreeEntry {
    std::uint32_t value = 0;
    std::uint32_t key = 0;
};

/// All pairs in the order of the leaves. Their number is bounded by that of the blocks.
/// @param tree the block that describes the tree
/// @throws FormatError, also when the tree states another number of pairs
std::vector<TreeEntry> readTree(const Store& store, std::uint32_t tree);

/// The blocks of a tree that are named before its content is known.
struct TreeBlocks {
    /// Describes the tree.
    std::uint32_t tree = 0;
    /// The first leaf.
    std::uint32_t leaf = 0;
};

/// Takes the next two numbers.
TreeBlocks reserveTree(StoreBuilder& store);

/// Writes a tree of at most 256 pairs a leaf and 256 children a branch.
/// @param nodeSize bytes of each node; one that holds pairs has 4,096
/// @param entries in the order of their keys
void writeTree(StoreBuilder& store, const TreeBlocks& blocks, std::uint32_t nodeSize,
               std::span<const TreeEntry> entries);

} // namespace corvane::Bom
