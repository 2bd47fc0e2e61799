#include "Platform/Formats/Apfs/Tree.hpp"

#include "Platform/Formats/FormatError.hpp"

#include <unordered_set>

namespace corvane::Apfs {
namespace {

/// A node holds dozens of records, so real trees stay far below this.
constexpr std::size_t levelLimit = 16;
/// Of all records of one tree.
constexpr std::size_t recordLimit = 16'000'000;

constexpr std::size_t headerSize = 56;
/// The description of the tree at the end of its root.
constexpr std::size_t rootTrailerSize = 40;

constexpr std::uint16_t rootFlag = 1;
constexpr std::uint16_t leafFlag = 2;
constexpr std::uint16_t fixedFlag = 4;
constexpr std::uint16_t layoutFlags = 0x1F;

struct Pair {
    Record key;
    Record value;
};

/// Keys are counted from the end of the table, values backwards from the end of the node.
class TreeNode {
  public:
    TreeNode(Object object, TreeKind kind, bool isRoot)
        : object_(std::move(object)),
          record_(object_.record()),
          kind_(kind),
          valuesEnd_(record_.size() - (isRoot ? rootTrailerSize : 0)),
          level_(record_.u16(34)) {
        const int expected =
            (isRoot ? rootFlag : 0) | (level_ == 0 ? leafFlag : 0) | (kind == TreeKind::objectMap ? fixedFlag : 0);
        if ((record_.u16(32) & layoutFlags) != expected) {
            record_.fail("expected a tree's node of the form " + std::to_string(expected) + ", found " +
                         std::to_string(record_.u16(32) & layoutFlags));
        }
        table_ = headerSize + record_.u16(40);
        keys_ = table_ + record_.u16(42);
        if (keys_ > valuesEnd_ || count() > (keys_ - table_) / slotSize()) {
            record_.fail("expected a table of " + std::to_string(count()) + " records, found less room");
        }
    }

    std::size_t level() const { return level_; }
    std::uint32_t count() const { return record_.u32(36); }
    const Record& record() const { return record_; }

    Pair pair(std::size_t index) const {
        const std::size_t slot = table_ + index * slotSize();
        if (kind_ == TreeKind::fileTree) {
            return {key(record_.u16(slot), record_.u16(slot + 2)), value(record_.u16(slot + 4), record_.u16(slot + 6))};
        }
        return {key(record_.u16(slot), 16), value(record_.u16(slot + 2), level_ > 0 ? 8 : 16)};
    }

  private:
    std::size_t slotSize() const { return kind_ == TreeKind::fileTree ? 8 : 4; }
    Record key(std::size_t offset, std::size_t size) const {
        if (offset + size > valuesEnd_ - keys_) record_.fail("a key passes the end of its node");
        return record_.part(keys_ + offset, size);
    }
    Record value(std::size_t offset, std::size_t size) const {
        if (offset > valuesEnd_ - keys_ || size > offset) record_.fail("a value passes the end of its node");
        return record_.part(valuesEnd_ - offset, size);
    }

    Object object_;
    Record record_;
    TreeKind kind_;
    std::size_t valuesEnd_;
    std::size_t level_;
    std::size_t table_ = 0;
    std::size_t keys_ = 0;
};

class TreeWalk {
  public:
    TreeWalk(const ObjectReader& objects, TreeKind kind, const std::function<std::uint64_t(std::uint64_t)>& addressOf,
             const std::function<void(const Record&, const Record&)>& visit)
        : objects_(objects), kind_(kind), addressOf_(addressOf), visit_(visit) {}

    void root(std::uint64_t address, std::uint64_t identifier) {
        visited_.insert(address);
        const TreeNode node(objects_.object(address, identifier, ObjectType::treeRoot), kind_, true);
        if (node.level() >= levelLimit) {
            node.record().fail("expected a tree of at most " + std::to_string(levelLimit) + " levels");
        }
        records(node);
    }

  private:
    /// Recursion ends at the leaves: every child is one level lower.
    void records(const TreeNode& node) {
        for (std::uint32_t index = 0; index < node.count(); ++index) {
            const Pair pair = node.pair(index);
            if (node.level() == 0) {
                if (++count_ > recordLimit) node.record().fail("the tree has too many records");
                visit_(pair.key, pair.value);
            } else {
                child(node, pair.value.u64(0));
            }
        }
    }

    void child(const TreeNode& parent, std::uint64_t identifier) {
        const std::uint64_t address = addressOf_(identifier);
        if (!visited_.insert(address).second) parent.record().fail("the tree leads to one node twice");
        const TreeNode node(objects_.object(address, identifier, ObjectType::treeNode), kind_, false);
        if (node.level() + 1 != parent.level()) {
            node.record().fail("expected a node of level " + std::to_string(parent.level() - 1) + ", found " +
                               std::to_string(node.level()));
        }
        records(node);
    }

    const ObjectReader& objects_;
    TreeKind kind_;
    const std::function<std::uint64_t(std::uint64_t)>& addressOf_;
    const std::function<void(const Record&, const Record&)>& visit_;
    std::unordered_set<std::uint64_t> visited_;
    std::size_t count_ = 0;
};

} // namespace

void walkTree(const ObjectReader& objects, TreeKind kind, std::uint64_t root, std::uint64_t rootIdentifier,
              const std::function<std::uint64_t(std::uint64_t)>& addressOf,
              const std::function<void(const Record& key, const Record& value)>& visit) {
    TreeWalk(objects, kind, addressOf, visit).root(root, rootIdentifier);
}

} // namespace corvane::Apfs
