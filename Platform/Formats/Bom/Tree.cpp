#include "Platform/Formats/Bom/Tree.hpp"

#include "Platform/Formats/FormatError.hpp"

#include <algorithm>

namespace corvane::Bom {
namespace {

constexpr std::string_view magic = "tree";
constexpr std::size_t nodeCapacity = 256;
/// Levels of branches: more than a file of 4 GiB could need.
constexpr std::size_t depthLimit = 32;

/// The head of a node; the cursor stands at its pairs.
struct Node {
    bool isLeaf;
    std::uint16_t count;
    std::uint32_t next;
    ByteCursor pairs;
};

Node readNode(const Store& store, std::uint32_t number) {
    ByteCursor cursor = store.block(number);
    const bool isLeaf = cursor.u16BigEndian() != 0;
    const std::uint16_t count = cursor.u16BigEndian();
    const std::uint32_t next = cursor.u32BigEndian();
    cursor.u32BigEndian(); // the leaf before
    return {isLeaf, count, next, cursor};
}

Node firstLeaf(const Store& store, std::uint32_t number) {
    for (std::size_t level = 0; level < depthLimit; ++level) {
        Node node = readNode(store, number);
        if (node.isLeaf) return node;
        number = node.pairs.u32BigEndian(); // the leftmost child, also of a branch without keys
    }
    throw FormatError("bom: expected at most " + std::to_string(depthLimit) + " levels of branches");
}

/// A node and the last key below it.
struct Child {
    std::uint32_t node;
    std::uint32_t lastKey;
};

std::string nodeHead(bool isLeaf, std::size_t count, std::uint32_t next, std::uint32_t previous) {
    std::string bytes;
    appendBigEndian(bytes, isLeaf ? 1 : 0, 2);
    appendBigEndian(bytes, count, 2);
    appendBigEndian(bytes, next, 4);
    appendBigEndian(bytes, previous, 4);
    return bytes;
}

/// Leaves behind the first get the next numbers, so the number of the following leaf is known before it is written.
std::vector<Child> writeLeaves(StoreBuilder& store, std::uint32_t first, std::uint32_t nodeSize,
                               std::span<const TreeEntry> entries) {
    std::vector<Child> leaves;
    std::uint32_t previous = 0;
    std::uint32_t number = first;
    do {
        const auto mine = entries.first(std::min(entries.size(), nodeCapacity));
        entries = entries.subspan(mine.size());
        const std::uint32_t next = entries.empty() ? 0 : store.reserve();
        std::string node = nodeHead(true, mine.size(), next, previous);
        for (const TreeEntry& entry : mine) {
            appendBigEndian(node, entry.value, 4);
            appendBigEndian(node, entry.key, 4);
        }
        node.resize(nodeSize);
        store.set(number, node);
        leaves.push_back({number, mine.empty() ? 0 : mine.back().key});
        previous = number;
        number = next;
    } while (number != 0);
    return leaves;
}

/// A branch has a key between two children each.
Child writeBranch(StoreBuilder& store, std::uint32_t nodeSize, std::span<const Child> children) {
    std::string node = nodeHead(false, children.size() - 1, 0, 0);
    for (const Child& child : children.first(children.size() - 1)) {
        appendBigEndian(node, child.node, 4);
        appendBigEndian(node, child.lastKey, 4);
    }
    appendBigEndian(node, children.back().node, 4);
    node.resize(nodeSize);
    return {store.add(node), children.back().lastKey};
}

/// One level of branches. Children are spread evenly, so that no branch has a single one.
std::vector<Child> writeBranches(StoreBuilder& store, std::uint32_t nodeSize, std::span<const Child> children) {
    const std::size_t count = (children.size() + nodeCapacity - 1) / nodeCapacity;
    std::vector<Child> branches;
    for (std::size_t index = 0; index < count; ++index) {
        const std::size_t begin = children.size() * index / count;
        const std::size_t end = children.size() * (index + 1) / count;
        branches.push_back(writeBranch(store, nodeSize, children.subspan(begin, end - begin)));
    }
    return branches;
}

} // namespace

std::vector<TreeEntry> readTree(const Store& store, std::uint32_t tree) {
    ByteCursor description = store.block(tree);
    description.expect(magic);
    description.skip(4); // version
    const std::uint32_t child = description.u32BigEndian();
    description.skip(4); // size of the nodes
    const std::uint32_t count = description.u32BigEndian();

    if (count > store.blockCount()) description.fail("expected at most one entry a block in a tree");
    std::vector<TreeEntry> entries;
    Node leaf = firstLeaf(store, child);
    for (std::size_t visited = 1; entries.size() <= count; ++visited) {
        for (std::uint16_t index = 0; index < leaf.count; ++index) {
            entries.push_back({leaf.pairs.u32BigEndian(), leaf.pairs.u32BigEndian()});
        }
        if (leaf.next == 0) break;
        if (visited == store.blockCount()) leaf.pairs.fail("expected a last leaf, found a circle of them");
        leaf = readNode(store, leaf.next);
        if (!leaf.isLeaf) leaf.pairs.fail("expected a leaf, found a branch");
    }
    if (entries.size() != count) {
        description.fail("expected " + std::to_string(count) + " entries in a tree, found " +
                         (entries.size() > count ? "more" : std::to_string(entries.size())));
    }
    return entries;
}

TreeBlocks reserveTree(StoreBuilder& store) {
    const std::uint32_t tree = store.reserve();
    return {tree, store.reserve()};
}

void writeTree(StoreBuilder& store, const TreeBlocks& blocks, std::uint32_t nodeSize,
               std::span<const TreeEntry> entries) {
    std::vector<Child> level = writeLeaves(store, blocks.leaf, nodeSize, entries);
    while (level.size() > 1) level = writeBranches(store, nodeSize, level);
    std::string description(magic);
    appendBigEndian(description, 1, 4);
    appendBigEndian(description, level.front().node, 4);
    appendBigEndian(description, nodeSize, 4);
    appendBigEndian(description, entries.size(), 4);
    appendBigEndian(description, 0, 1);
    store.set(blocks.tree, description);
}

} // namespace corvane::Bom
