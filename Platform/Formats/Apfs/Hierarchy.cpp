#include "Platform/Formats/Apfs/Hierarchy.hpp"

#include "Platform/Formats/EntryName.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Volume/Volume.hpp"

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <unordered_set>

namespace corvane::Apfs {
namespace {

/// The folder above all that have a place of their own, without an inode; it names the root and the private folder.
constexpr std::uint64_t parentOfRoot = 1;
constexpr std::uint64_t rootFolder = 2;
/// Inodes below it are the system's own.
constexpr std::uint64_t firstUserInode = 16;

[[noreturn]] void fail(const std::string& problem) { throw FormatError(std::string(formatName) + ": " + problem); }

class HierarchyWalk {
  public:
    HierarchyWalk(const FileTree& tree, const std::function<void(std::string, const Inode&)>& visit)
        : tree_(tree), visit_(visit) {}

    void run() {
        const Inode* root = tree_.inode(rootFolder);
        if (root == nullptr || !S_ISDIR(root->mode)) fail("the volume has no root folder");
        reached_ += tree_.entriesOf(parentOfRoot).size();
        below(*root, ".", true);
        for (const Inode& inode : tree_.inodes()) {
            if (inode.number >= firstUserInode) break;
            if (inode.number != rootFolder) below(inode, ".", false);
        }
        requireAllReached();
    }

  private:
    struct Pending {
        std::string path;
        const Inode* inode;
    };

    /// A stack of what is still to come stands for recursion, which names would make as deep as they like.
    void below(const Inode& top, std::string path, bool isVisible) {
        std::vector<Pending> pending{{std::move(path), &top}};
        named_.insert(top.number);
        while (!pending.empty()) {
            const Pending next = std::move(pending.back());
            pending.pop_back();
            if (isVisible) visit_(next.path, *next.inode);
            if (S_ISDIR(next.inode->mode)) pushChildren(pending, next);
        }
    }

    void pushChildren(std::vector<Pending>& pending, const Pending& folder) {
        const auto entries = tree_.entriesOf(folder.inode->number);
        reached_ += entries.size();
        for (std::size_t left = entries.size(); left > 0; --left) {
            const DirectoryEntry& entry = entries[left - 1];
            std::string path = folder.path == "." ? entry.name : folder.path + "/" + entry.name;
            EntryName::checkPath(path, formatName);
            text_ += path.size();
            if (text_ > volumeTextLimit) {
                fail("expected paths of at most " + std::to_string(volumeTextLimit) + " bytes in all");
            }
            const Inode* inode = tree_.inode(entry.inode);
            if (inode == nullptr) fail("\"" + path + "\" names an inode that is not there");
            if (!named_.insert(inode->number).second && S_ISDIR(inode->mode)) {
                fail("the folder \"" + path + "\" stands in two places");
            }
            pending.push_back({std::move(path), inode});
        }
    }

    void requireAllReached() const {
        if (reached_ != tree_.directoryEntries().size()) fail("the volume has entries that no folder leads to");
        if (named_.size() == tree_.inodes().size()) return;
        for (const Inode& inode : tree_.inodes()) {
            if (!named_.contains(inode.number)) fail("nothing names the inode " + std::to_string(inode.number));
        }
    }

    const FileTree& tree_;
    const std::function<void(std::string, const Inode&)>& visit_;
    std::unordered_set<std::uint64_t> named_;
    std::size_t reached_ = 0;
    /// Bytes of all paths.
    std::uint64_t text_ = 0;
};

} // namespace

void walkHierarchy(const FileTree& tree, const std::function<void(std::string path, const Inode& inode)>& visit) {
    HierarchyWalk(tree, visit).run();
}

} // namespace corvane::Apfs
