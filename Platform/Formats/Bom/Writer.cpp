#include "Platform/Formats/Bom/Writer.hpp"

#include "Platform/Formats/Bom/PathRecord.hpp"
#include "Platform/Formats/Bom/Store.hpp"
#include "Platform/Formats/Bom/Tree.hpp"
#include "Platform/Formats/EntryName.hpp"
#include "Platform/Formats/FormatError.hpp"

#include <algorithm>
#include <unordered_map>
#include <utility>

namespace corvane::Bom {
namespace {

/// Sizes of tree nodes in bytes.
constexpr std::uint32_t ordinaryNode = 4096;
constexpr std::uint32_t pathIndexNode = 128;
constexpr std::uint32_t linkNode = 64;

std::string number(std::uint64_t value, std::size_t width) {
    std::string bytes;
    appendBigEndian(bytes, value, width);
    return bytes;
}

/// Sums over all entries, the content of the first block. Sums are modulo 4 GiB.
class Totals {
  public:
    void add(const Entry& entry) {
        ++paths_;
        if (entry.path == ".") rootSize_ = entry.size;
        for (const Architecture& each : entry.architectures) bytesOf(each.cpuType) += each.size;
        if (entry.type != EntryType::directory && entry.architectures.empty()) otherBytes_ += entry.size;
    }

    std::string encoded() const {
        std::string bytes = number(1, 4) + number(paths_ + 1, 4) + number(slices_.size() + 1, 4);
        const auto append = [&](std::uint32_t cpuType, std::uint64_t size) {
            bytes += number(cpuType, 4) + number(0, 4) + number(size, 4) + number(0, 4);
        };
        append(0, std::max(otherBytes_, rootSize_));
        for (const auto& [cpuType, size] : slices_) append(cpuType, size);
        return bytes;
    }

  private:
    std::uint64_t& bytesOf(std::uint32_t cpuType) {
        const auto found =
            std::find_if(slices_.begin(), slices_.end(), [&](const auto& each) { return each.first == cpuType; });
        return found != slices_.end() ? found->second : slices_.emplace_back(cpuType, 0).second;
    }

    std::uint64_t paths_ = 0;
    std::uint64_t rootSize_ = 0;
    /// Bytes of whatever is no program.
    std::uint64_t otherBytes_ = 0;
    /// Bytes for each type of processor, in the order in which they came.
    std::vector<std::pair<std::uint32_t, std::uint64_t>> slices_;
};

std::string parentPath(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

} // namespace

struct Writer::State {
    /// One path and its blocks.
    struct Path {
        std::uint32_t id;
        std::uint32_t parent;
        std::uint32_t record;
        std::uint32_t key;
        std::uint32_t identity;
    };

    /// Members in the order of their block numbers.
    StoreBuilder store;
    std::uint32_t totalsBlock = store.reserve();
    TreeBlocks pathTree = reserveTree(store);
    TreeBlocks linkTree = reserveTree(store);
    std::uint32_t pathIndex = store.reserve();
    TreeBlocks pathIndexTree = reserveTree(store);
    TreeBlocks sizeTree = reserveTree(store);

    Totals totals;
    std::vector<Path> paths;
    std::vector<TreeEntry> largeSizes;
    std::unordered_map<std::string, std::uint32_t> directories;
    /// Get their numbers after everything else.
    std::vector<Entry> companions;

    std::uint32_t parent(const std::string& path) const;
    void append(const Entry& entry);
    std::string_view name(const Path& path) const;
    void sortPaths();
    void writePaths();
    std::vector<const Path*> hierarchy() const;
    void writeLinks();
};

std::uint32_t Writer::State::parent(const std::string& path) const {
    if (path == ".") return 0;
    EntryName::checkPath(path, "bom");
    const auto found = directories.find(parentPath(path));
    if (found == directories.end()) throw FormatError("bom: expected the folder of " + path + " before it");
    return found->second;
}

void Writer::State::append(const Entry& entry) {
    Path path{};
    path.id = static_cast<std::uint32_t>(paths.size() + 1);
    path.parent = parent(entry.path);
    path.record = store.add(PathRecord::encode(entry));
    path.key = store.add(number(path.parent, 4) + (entry.path.substr(entry.path.rfind('/') + 1) + '\0'));
    path.identity = store.add(number(path.id, 4) + number(path.record, 4));
    paths.push_back(path);
    if (entry.type == EntryType::directory) directories.emplace(entry.path, path.id);
    if (entry.size >> 32 != 0) {
        const std::uint32_t size = store.add(number(entry.size, 8));
        largeSizes.push_back({size, store.add(number(path.record, 4))});
    }
    totals.add(entry);
}

std::string_view Writer::State::name(const Path& path) const {
    const std::string_view key = store.block(path.key);
    return key.substr(4, key.size() - 5);
}

void Writer::State::sortPaths() {
    std::sort(paths.begin(), paths.end(), [&](const Path& left, const Path& right) {
        return left.parent != right.parent ? left.parent < right.parent : name(left) < name(right);
    });
    for (std::size_t index = 1; index < paths.size(); ++index) {
        const Path& path = paths[index];
        if (path.parent != paths[index - 1].parent || name(path) != name(paths[index - 1])) continue;
        throw FormatError("bom: expected one " + std::string(name(path)) + " in a folder");
    }
}

void Writer::State::writePaths() {
    std::vector<TreeEntry> entries;
    for (const Path& path : paths) entries.push_back({path.identity, path.key});
    writeTree(store, pathTree, ordinaryNode, entries);
}

/// Every directory before what is in it, names in order.
std::vector<const Writer::State::Path*> Writer::State::hierarchy() const {
    std::vector<const Path*> result;
    std::vector<const Path*> waiting{&paths.front()};
    while (!waiting.empty()) {
        const Path& path = *waiting.back();
        waiting.pop_back();
        result.push_back(&path);
        const auto after = std::upper_bound(paths.begin(), paths.end(), path.id,
                                            [](std::uint32_t id, const Path& each) { return id < each.parent; });
        for (auto each = after; each != paths.begin() && std::prev(each)->parent == path.id;) {
            waiting.push_back(&*--each);
        }
    }
    return result;
}

/// An index of the names of each inode. Every record stands for itself, so the trees that would list further names are
/// empty.
void Writer::State::writeLinks() {
    std::vector<std::pair<std::uint32_t, TreeEntry>> entries;
    for (const Path* path : hierarchy()) {
        const TreeBlocks names = reserveTree(store);
        writeTree(store, names, linkNode, {});
        const std::uint32_t key = store.add(number(path->record, 4));
        entries.push_back({path->record, {store.add(number(names.tree, 4)), key}});
    }
    std::sort(entries.begin(), entries.end(),
              [](const auto& left, const auto& right) { return left.first < right.first; });
    std::vector<TreeEntry> sorted;
    for (const auto& [record, entry] : entries) sorted.push_back(entry);
    writeTree(store, linkTree, ordinaryNode, sorted);
}

Writer::Writer() : state_(std::make_unique<State>()) {}
Writer::~Writer() = default;

void Writer::add(const Entry& entry) {
    if (entry.isCompanion) {
        state_->companions.push_back(entry);
        return;
    }
    const bool isFirst = state_->paths.empty();
    if (isFirst != (entry.path == ".")) throw FormatError("bom: expected the root first and once");
    state_->append(entry);
}

void Writer::finish(const Sink& sink) {
    if (state_->paths.empty()) throw FormatError("bom: expected a root");
    for (const Entry& companion : state_->companions) state_->append(companion);
    state_->sortPaths();
    state_->writePaths();
    state_->writeLinks();
    StoreBuilder& store = state_->store;
    store.set(state_->pathIndex, number(1, 4) + number(state_->pathIndexTree.tree, 4) + number(0, 5));
    writeTree(store, state_->pathIndexTree, pathIndexNode, {});
    writeTree(store, state_->sizeTree, ordinaryNode, state_->largeSizes);
    store.set(state_->totalsBlock, state_->totals.encoded());
    store.write({{"BomInfo", state_->totalsBlock},
                 {"Paths", state_->pathTree.tree},
                 {"HLIndex", state_->linkTree.tree},
                 {"VIndex", state_->pathIndex},
                 {"Size64", state_->sizeTree.tree}},
                sink);
}

} // namespace corvane::Bom
