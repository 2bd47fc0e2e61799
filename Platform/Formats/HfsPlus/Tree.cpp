#include "Platform/Formats/HfsPlus/Tree.hpp"

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Volume/Volume.hpp"

#include <bit>
#include <string>

namespace corvane::HfsPlus {
namespace {

constexpr std::size_t descriptorSize = 14;
constexpr std::uint8_t leafKind = 0xFF;
constexpr std::uint8_t headerKind = 1;
constexpr std::size_t smallestNode = 512;
/// A file and its thread for each entry.
constexpr std::uint64_t recordLimit = 2 * volumeEntryLimit;

struct Header {
    std::uint32_t records = 0;
    std::uint32_t firstLeaf = 0;
    std::uint32_t lastLeaf = 0;
    std::uint16_t nodeSize = 0;
};

struct Descriptor {
    std::uint32_t next = 0;
    std::uint32_t previous = 0;
    std::uint8_t kind = 0;
    std::uint16_t records = 0;
};

Descriptor readDescriptor(ByteCursor& cursor) {
    Descriptor found;
    found.next = cursor.u32BigEndian();
    found.previous = cursor.u32BigEndian();
    found.kind = cursor.u8();
    cursor.skip(1);
    found.records = cursor.u16BigEndian();
    cursor.skip(2);
    return found;
}

Header readHeader(const RandomAccess& file, std::string_view format) {
    std::string bytes(smallestNode, '\0');
    file.read(0, bytes);
    ByteCursor cursor(bytes, format);
    const std::uint8_t kind = readDescriptor(cursor).kind;
    if (kind != headerKind) cursor.fail("expected the header of a tree, found a node of kind " + std::to_string(kind));
    cursor.skip(6);
    Header header;
    header.records = cursor.u32BigEndian();
    header.firstLeaf = cursor.u32BigEndian();
    header.lastLeaf = cursor.u32BigEndian();
    header.nodeSize = cursor.u16BigEndian();
    if (header.nodeSize < smallestNode || !std::has_single_bit(header.nodeSize)) {
        cursor.fail("expected nodes of a power of two from 512 on, found " + std::to_string(header.nodeSize));
    }
    return header;
}

/// Reads one leaf after another.
class Leaves {
  public:
    using Use = std::function<void(ByteCursor, ByteCursor)>;

    Leaves(const RandomAccess& file, std::string_view format, const Use& use)
        : file_(file), format_(format), use_(use), header_(readHeader(file, format)), node_(header_.nodeSize, '\0') {}

    /// Every node names the one before it, so a chain cannot come to a node twice.
    void read() {
        std::uint32_t previous = 0;
        for (std::uint32_t number = header_.firstLeaf; number != 0;) {
            const std::uint32_t next = readNode(number, previous);
            previous = number;
            number = next;
        }
        require("the last leaf", header_.lastLeaf, previous);
        require("the number of records", header_.records, records_);
    }

  private:
    void require(const std::string& what, std::uint64_t expected, std::uint64_t found) const {
        if (expected == found) return;
        throw FormatError(std::string(format_) + ": expected " + what + " to be " + std::to_string(expected) +
                          ", found " + std::to_string(found));
    }

    std::uint32_t readNode(std::uint32_t number, std::uint32_t previous) {
        base_ = std::uint64_t{number} * header_.nodeSize;
        file_.read(base_, node_);
        ByteCursor cursor(node_, format_, base_);
        const Descriptor node = readDescriptor(cursor);
        const std::string name = "node " + std::to_string(number);
        require("the kind of " + name, leafKind, node.kind);
        require("the node before " + name, previous, node.previous);
        records_ += node.records;
        if (records_ > recordLimit) cursor.fail("found more than " + std::to_string(recordLimit) + " records");
        for (std::size_t index = 0; index < node.records; ++index) readRecord(index, node.records);
        return node.next;
    }

    /// The offsets of the records stand at the node's end, the first one last; one more tells where the last one ends.
    std::size_t recordOffset(std::size_t index) const {
        const std::size_t place = node_.size() - 2 * (index + 1);
        return ByteCursor(std::string_view(node_).substr(place), format_, base_ + place).u16BigEndian();
    }

    void readRecord(std::size_t index, std::size_t count) const {
        const std::size_t tableSize = 2 * (count + 1);
        if (tableSize > node_.size() - descriptorSize) {
            throw FormatError(format_, base_, "expected fewer records, found " + std::to_string(count));
        }
        const std::size_t start = recordOffset(index);
        const std::size_t end = recordOffset(index + 1);
        if (start < descriptorSize || start > end || end > node_.size() - tableSize) {
            throw FormatError(format_, base_,
                              "expected records one after another, found one from " + std::to_string(start) + " to " +
                                  std::to_string(end));
        }
        const std::string_view bytes = std::string_view(node_).substr(start, end - start);
        ByteCursor record(bytes, format_, base_ + start);
        const std::size_t keySize = record.u16BigEndian();
        const ByteCursor key(record.bytes(keySize), format_, base_ + start + 2);
        if (keySize % 2 != 0) record.skip(1);
        use_(key, record);
    }

    const RandomAccess& file_;
    std::string_view format_;
    const Use& use_;
    Header header_;
    std::string node_;
    /// Offset of the node in the file.
    std::uint64_t base_ = 0;
    std::uint64_t records_ = 0;
};

} // namespace

void forEachRecord(const RandomAccess& file, std::string_view format,
                   const std::function<void(ByteCursor key, ByteCursor value)>& use) {
    if (file.size() != 0) Leaves(file, format, use).read();
}

} // namespace corvane::HfsPlus
