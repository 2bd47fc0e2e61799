#include "Tests/Platform/Formats/HfsPlus/TestVolume.hpp"

#include "Platform/Formats/BigEndian.hpp"
#include "Support/Text.hpp"
#include "Tests/Platform/Formats/HfsPlus/TestTreeFile.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <tuple>
#include <vector>

namespace corvane::TestSupport {
namespace {

using Units = std::u16string;

constexpr std::uint32_t rootNumber = 2;
constexpr std::uint64_t epochDistance = 2082844800;
constexpr std::size_t extentsInRecord = 8;
constexpr std::uint32_t creation = 1600000000;

std::string number(std::uint64_t value, std::size_t width) {
    std::string bytes;
    appendBigEndian(bytes, value, width);
    return bytes;
}

std::string date(std::uint64_t seconds) { return number(seconds + epochDistance, 4); }

Units units(std::string_view name) {
    Units result;
    for (char32_t scalar : Text::scalars(name)) {
        if (scalar == ':') scalar = '/';
        if (scalar >= 0x10000) result += static_cast<char16_t>(0xD7C0 + (scalar >> 10));
        result += static_cast<char16_t>(scalar >= 0x10000 ? 0xDC00 + (scalar & 0x3FF) : scalar);
    }
    return result;
}

std::string stored(const Units& name) {
    std::string bytes = number(name.size(), 2);
    for (const char16_t each : name) appendBigEndian(bytes, each, 2);
    return bytes;
}

/// As the older form of volume compares: enough for ASCII and for what has no case.
Units folded(Units name) {
    for (char16_t& each : name) {
        if (each >= 'A' && each <= 'Z') each = static_cast<char16_t>(each + 32);
        if (each == 0) each = 0xFFFF;
    }
    return name;
}

struct Extent {
    std::size_t start;
    std::size_t count;
};

struct Stored {
    std::uint64_t size = 0;
    std::vector<Extent> extents;
};

/// Eight extents from one on.
std::string extentRecord(const Stored& fork, std::size_t first) {
    std::string bytes;
    for (std::size_t index = first; index < first + extentsInRecord; ++index) {
        const Extent each = index < fork.extents.size() ? fork.extents[index] : Extent{0, 0};
        bytes += number(each.start, 4) + number(each.count, 4);
    }
    return bytes;
}

std::size_t blockCount(const Stored& fork, std::size_t extents) {
    std::size_t sum = 0;
    for (std::size_t index = 0; index < std::min(extents, fork.extents.size()); ++index) {
        sum += fork.extents[index].count;
    }
    return sum;
}

std::string forkRecord(const Stored& fork) {
    return number(fork.size, 8) + number(0, 4) + number(blockCount(fork, fork.extents.size()), 4) +
           extentRecord(fork, 0);
}

std::string parentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

class Maker {
  public:
    Maker(TestTree tree, const TestVolumeOptions& options) : tree_(std::move(tree)), options_(options) {
        image_.resize((1536 + options.blockSize - 1) / options.blockSize * options.blockSize);
        used_.resize(blocks(), true);
        completeTree();
        for (const auto& [path, item] : tree_) numbers_[path] = path == "." ? rootNumber : next_++;
        addPrivateFolders();
        for (const auto& [path, item] : tree_) addItem(path);
    }

    std::string make() {
        const Stored catalog = allocate(testTreeFile(sortedCatalog(), catalogKind(), options_.nodeSize), 1);
        const Stored attributes = allocate(attributesFile(), 1);
        const Stored extents = allocate(testTreeFile(sorted(extents_), {10, 0, false}, options_.nodeSize), 1);
        // The last 1024 bytes have the second header; the bitmap has a bit for each block, its own among them.
        const std::size_t tail = (1024 + options_.blockSize - 1) / options_.blockSize;
        const std::size_t bitmapSize = (blocks() + tail) / 8 + 64;
        const Stored bitmap = allocate(std::string(bitmapSize, '\0'), 1);
        image_.resize(image_.size() + tail * options_.blockSize);
        used_.resize(blocks(), true);
        writeBitmap(bitmap);
        const std::string header =
            headerFields() + forkRecord(bitmap) + forkRecord(extents) + forkRecord(catalog) + forkRecord(attributes);
        image_.replace(1024, header.size(), header);
        image_.replace(image_.size() - 1024, header.size(), header);
        return image_;
    }

  private:
    std::size_t blocks() const { return image_.size() / options_.blockSize; }

    void completeTree() {
        std::vector<std::string> paths{"."};
        for (const auto& [path, item] : tree_) paths.push_back(path);
        for (std::string path : paths) {
            for (; path != "."; path = parentOf(path)) tree_.try_emplace(parentOf(path), TestItem{.mode = 040755});
        }
        tree_.try_emplace(".", TestItem{.mode = 040755});
        for (const auto& [path, item] : tree_) {
            if (!item.linkOf.empty()) ++names_[item.linkOf];
        }
    }

    /// Bytes in blocks at the end, cut into runs with a free block between them.
    Stored allocate(const std::string& bytes, std::size_t extents) {
        Stored result{bytes.size(), {}};
        const std::size_t count = (bytes.size() + options_.blockSize - 1) / options_.blockSize;
        const std::size_t runs = std::min(extents, count);
        for (std::size_t run = 0; run < runs; ++run) {
            const std::size_t from = count * run / runs;
            const std::size_t length = count * (run + 1) / runs - from;
            if (run > 0) image_.resize(image_.size() + options_.blockSize);
            used_.resize(blocks(), false);
            result.extents.push_back({blocks(), length});
            std::string piece = bytes.substr(from * options_.blockSize, length * options_.blockSize);
            piece.resize(length * options_.blockSize);
            image_ += piece;
            used_.resize(blocks(), true);
        }
        return result;
    }

    Stored allocateFork(const std::string& bytes, const TestItem& item, std::uint32_t file, std::uint8_t kind) {
        const Stored fork = allocate(bytes, item.extents);
        for (std::size_t first = extentsInRecord; first < fork.extents.size(); first += extentsInRecord) {
            const std::string rest = number(file, 4) + number(blockCount(fork, first), 4);
            extents_.push_back({number(file, 4) + number(kind, 1) + rest.substr(4),
                                {number(kind, 1) + number(0, 1) + rest, extentRecord(fork, first)}});
        }
        return fork;
    }

    bool hasNames(bool folders) const {
        return std::any_of(names_.begin(), names_.end(),
                           [&](const auto& each) { return S_ISDIR(tree_.at(each.first).mode) == folders; });
    }

    void addPrivateFolders() {
        const TestItem folder{.mode = 041755, .owner = 0, .group = 0};
        if (hasNames(false)) {
            privateFiles_ = next_++;
            add(folder, rootNumber, Units(4, 0) + u"HFS+ Private Data", privateFiles_);
        }
        if (hasNames(true)) {
            privateFolders_ = next_++;
            add(folder, rootNumber, u".HFS+ Private Directory Data\r", privateFolders_);
        }
    }

    /// Folders that are linked to are in the private folder, and so is what is in them.
    void addItem(const std::string& path) {
        const TestItem& item = tree_.at(path);
        const std::string& origin = item.linkOf.empty() ? path : item.linkOf;
        const std::uint32_t parent = path == "." ? 1 : numbers_.at(parentOf(path));
        const Units name = units(path == "." ? options_.name : path.substr(path.rfind('/') + 1));
        const std::uint32_t itemNumber = numbers_.at(path);
        if (!names_.contains(origin)) return add(item, parent, name, itemNumber);
        const bool isFolder = S_ISDIR(tree_.at(origin).mode);
        const std::uint32_t target = numbers_.at(origin);
        TestItem link{.mode = 0100444, .owner = 0, .group = 0};
        link.finderInfo = (isFolder ? "fdrpMACS" : "hlnkhfs+") + std::string(24, '\0');
        add(link, parent, name, item.linkOf.empty() ? next_++ : itemNumber, target);
        if (!item.linkOf.empty()) return;
        add(item, isFolder ? privateFolders_ : privateFiles_,
            units((isFolder ? "dir_" : "iNode") + std::to_string(target)), target, names_.at(origin) + 1);
    }

    void add(const TestItem& item, std::uint32_t parent, const Units& name, std::uint32_t file,
             std::uint32_t special = 1) {
        const bool isFolder = S_ISDIR(item.mode);
        ++children_[parent];
        ++(isFolder ? folders_ : files_);
        std::string info = item.finderInfo;
        if (S_ISLNK(item.mode)) info = "slnkrhap";
        info.resize(32);
        std::string record = date(creation) + date(item.modified) + date(item.modified) + date(item.modified) +
                             number(0, 4) + number(item.owner, 4) + number(item.group, 4) + number(0, 1) +
                             number(item.ownerFlags, 1) + number(item.mode, 2) + number(special, 4) + info +
                             number(0, 8);
        if (!isFolder) {
            record += forkRecord(allocateFork(item.data, item, file, 0));
            record += forkRecord(allocateFork(item.resourceFork, item, file, 0xFF));
        }
        catalog_.push_back({parent, name, isFolder, file, record});
        for (const auto& [key, value] : item.attributes) addAttribute(file, key, value, item.extents);
    }

    void addAttribute(std::uint32_t file, const std::string& name, const std::string& value, std::size_t extents) {
        const Units text = units(name);
        const auto insert = [&](std::size_t firstBlock, std::string record) {
            if (record.size() % 2 != 0) record += '\0';
            const std::string key = number(0, 2) + number(file, 4) + number(firstBlock, 4) + stored(text);
            // Sorted by the name's units before the block.
            std::string order = number(file, 4);
            for (const char16_t each : text) appendBigEndian(order, each, 2);
            attributes_.push_back({order + number(0, 2) + number(firstBlock, 4), {key, record}});
        };
        if (value.size() + 160 + 2 * text.size() < options_.nodeSize / 2) {
            insert(0, number(0x10, 4) + number(0, 8) + number(value.size(), 4) + value);
            return;
        }
        const Stored fork = allocate(value, extents);
        insert(0, number(0x20, 4) + number(0, 4) + forkRecord(fork));
        for (std::size_t first = extentsInRecord; first < fork.extents.size(); first += extentsInRecord) {
            insert(blockCount(fork, first), number(0x30, 4) + number(0, 4) + extentRecord(fork, first));
        }
    }

    /// Behind the flags, a folder has its number of items and a file nothing.
    std::vector<TestRecord> sortedCatalog() {
        std::vector<std::tuple<std::uint32_t, Units, TestRecord>> all;
        for (const CatalogItem& each : catalog_) {
            const Units order = options_.isCaseSensitive ? each.name : folded(each.name);
            const std::string start = each.isFolder ? number(1, 2) + number(0, 2) + number(children_[each.number], 4)
                                                    : number(2, 2) + number(2, 2) + number(0, 4);
            const std::string value = start + number(each.number, 4) + each.rest;
            const std::string thread =
                number(each.isFolder ? 3 : 4, 2) + number(0, 2) + number(each.parent, 4) + stored(each.name);
            all.push_back({each.parent, order, {number(each.parent, 4) + stored(each.name), value}});
            all.push_back({each.number, Units(), {number(each.number, 4) + number(0, 2), thread}});
        }
        std::sort(all.begin(), all.end(), [](const auto& left, const auto& right) {
            return std::tie(std::get<0>(left), std::get<1>(left)) < std::tie(std::get<0>(right), std::get<1>(right));
        });
        std::vector<TestRecord> records;
        for (auto& each : all) records.push_back(std::move(std::get<2>(each)));
        return records;
    }

    TestTreeKind catalogKind() const {
        return {516, static_cast<std::uint8_t>(options_.isCaseSensitive ? 0xBC : 0xCF), true};
    }

    using Ordered = std::vector<std::pair<std::string, TestRecord>>;

    static std::vector<TestRecord> sorted(Ordered ordered) {
        std::sort(ordered.begin(), ordered.end(),
                  [](const auto& left, const auto& right) { return left.first < right.first; });
        std::vector<TestRecord> records;
        for (auto& each : ordered) records.push_back(std::move(each.second));
        return records;
    }

    std::string attributesFile() const {
        return attributes_.empty() ? "" : testTreeFile(sorted(attributes_), {266, 0, true}, options_.nodeSize);
    }

    void writeBitmap(const Stored& bitmap) {
        const std::size_t offset = bitmap.extents.front().start * options_.blockSize;
        for (std::size_t block = 0; block < used_.size(); ++block) {
            if (!used_[block]) continue;
            char& byte = image_[offset + block / 8];
            byte = static_cast<char>(static_cast<unsigned char>(byte) | (0x80U >> (block % 8)));
        }
    }

    /// Up to the record of the bitmap.
    std::string headerFields() const {
        const auto freeBlocks = static_cast<std::size_t>(std::count(used_.begin(), used_.end(), false));
        // Put away in order, and perhaps journaled.
        const std::uint32_t attributes = 0x100 | (options_.isJournaled ? 0x2000 : 0);
        return (options_.isCaseSensitive ? "HX" : "H+") + number(options_.isCaseSensitive ? 5 : 4, 2) +
               number(attributes, 4) + "10.0" + number(0, 4) + date(creation) + date(creation) + number(0, 4) +
               date(creation) + number(files_, 4) + number(folders_ - 1, 4) + number(options_.blockSize, 4) +
               number(blocks(), 4) + number(freeBlocks, 4) + number(0, 4) + number(options_.blockSize, 4) +
               number(options_.blockSize, 4) + number(next_, 4) + number(1, 4) + number(1, 8) + std::string(32, '\0');
    }

    struct CatalogItem {
        std::uint32_t parent;
        Units name;
        bool isFolder;
        std::uint32_t number;
        /// The record behind the number.
        std::string rest;
    };

    TestTree tree_;
    TestVolumeOptions options_;
    std::string image_;
    std::vector<bool> used_;
    std::uint32_t next_ = 16;
    std::map<std::string, std::uint32_t> numbers_;
    /// How many more names an item has.
    std::map<std::string, std::uint32_t> names_;
    std::uint32_t privateFiles_ = 0;
    std::uint32_t privateFolders_ = 0;
    std::map<std::uint32_t, std::uint32_t> children_;
    std::uint32_t files_ = 0;
    std::uint32_t folders_ = 0;
    std::vector<CatalogItem> catalog_;
    Ordered extents_;
    Ordered attributes_;
};

} // namespace

std::string testVolume(const TestTree& tree, const TestVolumeOptions& options) { return Maker(tree, options).make(); }

} // namespace corvane::TestSupport
