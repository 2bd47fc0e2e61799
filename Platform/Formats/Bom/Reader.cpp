#include "Platform/Formats/Bom/Reader.hpp"

#include "Platform/Formats/Bom/PathRecord.hpp"
#include "Platform/Formats/EntryName.hpp"
#include "Platform/Formats/FormatError.hpp"

#include <algorithm>

namespace corvane::Bom {
namespace {

std::uint32_t pathsTree(const Store& store) {
    const auto found = store.variables().find("Paths");
    if (found != store.variables().end()) return found->second;
    std::string names;
    for (const auto& [name, block] : store.variables()) names += " " + name;
    throw FormatError("bom: expected a list of paths, found another store with" + (names.empty() ? " nothing" : names));
}

} // namespace

Reader::Reader(std::string_view bytes) : store_(bytes) {
    readPaths(pathsTree(store_));
    readLargeSizes();
}

void Reader::readPaths(std::uint32_t tree) {
    const std::vector<TreeEntry> entries = readTree(store_, tree);
    paths_.reserve(entries.size());
    places_.reserve(entries.size());
    for (const TreeEntry& entry : entries) {
        ByteCursor identity = store_.block(entry.value);
        const std::uint32_t id = identity.u32BigEndian();
        const std::uint32_t record = identity.u32BigEndian();
        const std::uint32_t parent = store_.block(entry.key).u32BigEndian();
        places_.emplace_back(id, static_cast<std::uint32_t>(paths_.size()));
        paths_.push_back({id, parent, record, entry.key});
    }
    std::sort(places_.begin(), places_.end());
    for (std::size_t index = 1; index < places_.size(); ++index) {
        if (places_[index].first == places_[index - 1].first) {
            throw FormatError("bom: expected one path of the number " + std::to_string(places_[index].first));
        }
    }
}

void Reader::readLargeSizes() {
    const auto found = store_.variables().find("Size64");
    if (found == store_.variables().end()) return;
    for (const TreeEntry& entry : readTree(store_, found->second)) {
        const std::uint32_t record = store_.block(entry.key).u32BigEndian();
        largeSizes_[record] = store_.block(entry.value).u64BigEndian();
    }
}

std::string_view Reader::name(const Path& path) const {
    ByteCursor key = store_.block(path.key);
    key.skip(4); // the parent
    const std::string_view text = key.bytes(key.remaining());
    const std::size_t end = text.find('\0');
    if (end == std::string_view::npos) key.fail("expected a zero at the end of a name");
    return text.substr(0, end);
}

const Reader::Path& Reader::parentOf(const Path& path) const {
    const auto found = std::lower_bound(places_.begin(), places_.end(), std::pair(path.parent, std::uint32_t{0}));
    if (found == places_.end() || found->first != path.parent) {
        throw FormatError("bom: expected the folder with the number " + std::to_string(path.parent));
    }
    return paths_[found->second];
}

/// Nothing for what is below another root than ".".
std::optional<std::string> Reader::fullPath(const Path& path) const {
    std::vector<std::string_view> names;
    const Path* current = &path;
    for (; current->parent != 0; current = &parentOf(*current)) {
        names.push_back(name(*current));
        if (names.size() > EntryName::depthLimit) {
            throw FormatError("bom: expected at most " + std::to_string(EntryName::depthLimit) + " nested folders");
        }
        EntryName::checkComponent(names.back(), "bom");
    }
    if (name(*current) != ".") return std::nullopt;
    if (names.empty()) return ".";
    std::string text;
    for (auto each = names.rbegin(); each != names.rend(); ++each) {
        if (!text.empty()) text += '/';
        text += *each;
    }
    EntryName::checkPath(text, "bom");
    return text;
}

std::optional<Entry> Reader::next() {
    while (next_ < paths_.size()) {
        const Path& path = paths_[next_++];
        auto text = fullPath(path);
        if (!text) continue;
        Entry entry;
        entry.path = *std::move(text);
        PathRecord::decode(store_.block(path.record), entry);
        const auto large = largeSizes_.find(path.record);
        if (large != largeSizes_.end()) entry.size = large->second;
        return entry;
    }
    return std::nullopt;
}

} // namespace corvane::Bom
