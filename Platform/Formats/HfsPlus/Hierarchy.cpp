#include "Platform/Formats/HfsPlus/Hierarchy.hpp"

#include "Platform/Formats/EntryName.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Volume/Volume.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <tuple>

namespace corvane::HfsPlus {
namespace {

constexpr std::uint32_t rootParent = 1;

/// Where files with several names are kept, and folders.
const std::string privateFiles = std::string(4, '\0') + "HFS+ Private Data";
const std::string privateFolders = ".HFS+ Private Directory Data\r";

[[noreturn]] void fail(const std::string& problem) { throw FormatError("hfsplus catalog: " + problem); }

bool precedes(const Item& left, const Item& right) {
    return std::tie(left.parent, left.name) < std::tie(right.parent, right.name);
}

bool isFileLink(const Item& item) { return !item.isFolder && item.finderInfo.starts_with("hlnkhfs+"); }
bool isFolderLink(const Item& item) { return !item.isFolder && item.finderInfo.starts_with("fdrpMACS"); }

bool isHidden(const Item& item, bool isJournaled) {
    if (item.parent != Numbers::root) return false;
    if (item.isFolder) return item.name == privateFiles || item.name == privateFolders;
    return isJournaled && (item.name == ".journal" || item.name == ".journal_info_block");
}

} // namespace

Hierarchy::Hierarchy(std::vector<Item> items) : items_(std::move(items)) {
    std::sort(items_.begin(), items_.end(), precedes);
    for (std::size_t index = 0; index < items_.size(); ++index) {
        const Item& item = items_[index];
        if (!byNumber_.emplace(item.number, index).second) {
            fail("found two items of number " + std::to_string(item.number));
        }
        if (index > 0 && !precedes(items_[index - 1], item)) fail("found two items named \"" + item.name + "\"");
    }
    requireTree();
}

const Item& Hierarchy::item(std::uint32_t number) const {
    const auto found = byNumber_.find(number);
    if (found == byNumber_.end()) fail("expected an item of number " + std::to_string(number));
    return items_[found->second];
}

/// Whatever is not met on the way down from the root has no parent or is its own ancestor.
void Hierarchy::requireTree() const {
    const auto root = byNumber_.find(Numbers::root);
    if (root == byNumber_.end() || !items_[root->second].isFolder || items_[root->second].parent != rootParent) {
        fail("expected a root folder of number 2");
    }
    std::vector<bool> isMet(items_.size());
    isMet[root->second] = true;
    for (std::vector<std::uint32_t> folders{Numbers::root}; !folders.empty();) {
        const auto [first, end] = children(folders.back());
        folders.pop_back();
        for (std::size_t index = first; index < end; ++index) {
            isMet[index] = true;
            if (items_[index].isFolder) folders.push_back(items_[index].number);
        }
    }
    const auto lost = std::find(isMet.begin(), isMet.end(), false);
    if (lost == isMet.end()) return;
    const Item& item = items_[static_cast<std::size_t>(lost - isMet.begin())];
    fail("expected \"" + item.name + "\" below the root, found it in folder " + std::to_string(item.parent));
}

std::pair<std::size_t, std::size_t> Hierarchy::children(std::uint32_t folder) const {
    const auto precedesFolder = [](const Item& item, std::uint32_t number) { return item.parent < number; };
    const auto first = std::lower_bound(items_.begin(), items_.end(), folder, precedesFolder);
    const auto end = std::lower_bound(first, items_.end(), std::uint64_t{folder} + 1,
                                      [](const Item& item, std::uint64_t number) { return item.parent < number; });
    return {first - items_.begin(), end - items_.begin()};
}

const Item* Hierarchy::child(std::uint32_t folder, const std::string& name) const {
    const auto key = std::tie(folder, name);
    const auto found = std::lower_bound(items_.begin(), items_.end(), key, [](const Item& item, const auto& wanted) {
        return std::tie(item.parent, item.name) < wanted;
    });
    return found != items_.end() && std::tie(found->parent, found->name) == key ? &*found : nullptr;
}

const Item& Hierarchy::linked(const Item& link) const {
    const bool isToFile = isFileLink(link);
    if (!isToFile && !isFolderLink(link)) return link;
    const Item* folder = child(Numbers::root, isToFile ? privateFiles : privateFolders);
    const std::string name = (isToFile ? "iNode" : "dir_") + std::to_string(link.special);
    const Item* target = folder == nullptr ? nullptr : child(folder->number, name);
    if (target == nullptr || target->isFolder == isToFile) {
        fail("expected the item of hard link \"" + link.name + "\" as " + name + ", found none");
    }
    return *target;
}

Hierarchy::Level Hierarchy::level(const Item& folder, std::string path) const {
    const auto [first, end] = children(folder.number);
    return {std::move(path), folder.number, first, end};
}

std::vector<Hierarchy::Place> Hierarchy::places(bool isJournaled) const {
    const Item& root = item(Numbers::root);
    std::vector<Place> result{{".", &root}};
    std::vector<Level> levels{level(root, "")};
    std::uint64_t text = 0;
    while (!levels.empty()) {
        Level& current = levels.back();
        if (current.next == current.end) {
            levels.pop_back();
            continue;
        }
        const Item& named = items_[current.next++];
        if (isHidden(named, isJournaled)) continue;
        const Item& item = linked(named);
        if (result.size() == volumeEntryLimit) fail("found more than " + std::to_string(result.size()) + " entries");
        const std::string path = current.path + named.name;
        EntryName::checkPath(path, "hfsplus catalog");
        text += path.size() + (S_ISLNK(item.mode) ? std::min<std::uint64_t>(item.data.size, EntryName::pathLimit) : 0);
        if (text > volumeTextLimit) {
            fail("expected paths of at most " + std::to_string(volumeTextLimit) + " bytes in all");
        }
        result.push_back({path, &item});
        if (!item.isFolder) continue;
        const bool isOpen =
            std::any_of(levels.begin(), levels.end(), [&](const Level& each) { return each.folder == item.number; });
        if (isOpen) fail("found folder \"" + path + "\" within itself");
        levels.push_back(level(item, path + "/"));
    }
    return result;
}

} // namespace corvane::HfsPlus
