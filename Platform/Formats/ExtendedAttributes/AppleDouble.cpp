#include "Platform/Formats/ExtendedAttributes/AppleDouble.hpp"

#include "Platform/Formats/BigEndian.hpp"
#include "Platform/Formats/ByteCursor.hpp"
#include "Platform/Formats/FormatError.hpp"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <set>
#include <utility>
#include <vector>

namespace corvane {
namespace {

using ExtendedAttributes::finderInfo;
using ExtendedAttributes::resourceFork;

constexpr std::string_view format = "AppleDouble";
constexpr std::string_view magic("\x00\x05\x16\x07\x00\x02\x00\x00", 8);
constexpr std::string_view filler = "Mac OS X        ";
constexpr std::string_view attributesMagic = "ATTR";
constexpr std::string_view blankForkText = "This resource fork intentionally left blank";

constexpr std::uint32_t resourceForkID = 2;
constexpr std::uint32_t finderInfoID = 9;

constexpr std::size_t finderInfoSize = 32;
/// The attributes begin at a multiple of four, two bytes behind the Finder information.
constexpr std::size_t finderInfoPadding = 2;
constexpr std::size_t blankForkSize = 286;
constexpr std::size_t blankForkTextOffset = 16;
/// Of the file's header with both entries.
constexpr std::size_t headerSize = 26 + 2 * 12;
constexpr std::size_t attributesHeaderSize = 36;
/// Of an attribute's entry, before its name.
constexpr std::size_t attributeEntrySize = 11;
constexpr std::size_t nameLimit = 254;

std::size_t paddedToFour(std::size_t size) { return (size + 3) & ~std::size_t{3}; }

class Parser {
  public:
    explicit Parser(std::string_view bytes) : bytes_(bytes) {}

    AppleDouble parse() {
        ByteCursor cursor(bytes_, format);
        cursor.expect(magic);
        cursor.skip(filler.size());
        std::set<std::uint32_t> seen;
        for (std::uint16_t left = cursor.u16BigEndian(); left > 0; --left) {
            const std::uint32_t id = cursor.u32BigEndian();
            if (!seen.insert(id).second) cursor.fail("the same entry twice");
            const std::uint32_t offset = cursor.u32BigEndian();
            readEntry(id, offset, area(offset, cursor.u32BigEndian()));
        }
        return std::move(file_);
    }

  private:
    std::string_view area(std::uint64_t offset, std::uint64_t length) const {
        if (offset > bytes_.size() || length > bytes_.size() - offset) {
            throw FormatError(format, offset, "expected " + std::to_string(length) + " bytes, found the end");
        }
        return bytes_.substr(offset, length);
    }

    void readEntry(std::uint32_t id, std::uint32_t offset, std::string_view content) {
        if (id == resourceForkID) add(resourceFork, content);
        if (id != finderInfoID || content.empty()) return;
        add(finderInfo, ByteCursor(content, format, offset).bytes(finderInfoSize));
        const std::size_t start = finderInfoSize + finderInfoPadding;
        if (content.size() < start + attributesHeaderSize) return;
        if (content.substr(start, attributesMagic.size()) != attributesMagic) return;
        readAttributes(content.substr(start), offset + start);
    }

    void readAttributes(std::string_view content, std::uint64_t base) {
        ByteCursor cursor(content, format, base);
        cursor.skip(attributesHeaderSize - 2);
        for (std::uint16_t left = cursor.u16BigEndian(); left > 0; --left) {
            const std::uint32_t offset = cursor.u32BigEndian();
            const std::string_view value = area(offset, cursor.u32BigEndian());
            cursor.skip(2);
            const std::string_view name = readName(cursor);
            // Values that share their bytes could make a small file large.
            valuesSize_ += value.size();
            if (valuesSize_ > bytes_.size()) cursor.fail("values overlap");
            if (name == finderInfo || name == resourceFork || file_.attributes.contains(std::string(name))) {
                cursor.fail("the same attribute twice");
            }
            add(name, value);
        }
    }

    /// The name without the zero byte that ends it.
    static std::string_view readName(ByteCursor& cursor) {
        const std::size_t size = cursor.u8();
        const std::string_view field = cursor.bytes(size);
        if (size < 2 || field.find('\0') != size - 1) cursor.fail("expected a name ended by a zero byte before this");
        const std::size_t padding = paddedToFour(attributeEntrySize + size) - (attributeEntrySize + size);
        cursor.skip(std::min(padding, cursor.remaining()));
        return field.substr(0, size - 1);
    }

    void add(std::string_view name, std::string_view value) {
        if (!isBlankAttribute(name, value)) file_.attributes.emplace(name, value);
    }

    std::string_view bytes_;
    std::uint64_t valuesSize_ = 0;
    AppleDouble file_;
};

class Serializer {
  public:
    explicit Serializer(const std::map<std::string, std::string>& attributes) {
        for (const auto& [name, value] : attributes) {
            if (isBlankAttribute(name, value)) continue;
            if (name == finderInfo) {
                information_ = value;
            } else if (name == resourceFork) {
                fork_ = value;
            } else {
                addAttribute(name, value);
            }
        }
        if (information_.size() != finderInfoSize) fail("Finder information has 32 bytes");
        if (forkOffset() + fork_.size() > std::numeric_limits<std::uint32_t>::max()) fail("more than 4 GiB");
    }

    std::string serialized() const {
        std::string bytes;
        bytes.reserve(forkOffset() + fork_.size());
        bytes.append(magic).append(filler);
        appendBigEndian(bytes, 2, 2);
        appendEntry(bytes, finderInfoID, headerSize, forkOffset() - headerSize);
        appendEntry(bytes, resourceForkID, forkOffset(), fork_.size());
        bytes.append(information_).append(finderInfoPadding, '\0').append(attributesMagic);
        appendBigEndian(bytes, 0, 4);
        appendBigEndian(bytes, forkOffset(), 4);
        appendBigEndian(bytes, dataOffset(), 4);
        appendBigEndian(bytes, dataSize_, 4);
        bytes.append(3 * 4, '\0');
        appendBigEndian(bytes, 0, 2);
        appendBigEndian(bytes, attributes_.size(), 2);
        appendAttributes(bytes);
        bytes += fork_;
        return bytes;
    }

  private:
    [[noreturn]] static void fail(const std::string& problem) {
        throw FormatError(std::string(format) + ": " + problem);
    }

    void addAttribute(const std::string& name, const std::string& value) {
        if (name.empty() || name.size() > nameLimit || name.find('\0') != std::string::npos) {
            fail("cannot hold an attribute of the name \"" + name + "\"");
        }
        attributes_.emplace_back(name, value);
        if (attributes_.size() > std::numeric_limits<std::uint16_t>::max()) fail("too many attributes");
        entriesSize_ += paddedToFour(attributeEntrySize + name.size() + 1);
        dataSize_ += value.size();
    }

    void appendAttributes(std::string& bytes) const {
        std::uint64_t offset = dataOffset();
        for (const auto& [name, value] : attributes_) {
            appendBigEndian(bytes, offset, 4);
            appendBigEndian(bytes, value.size(), 4);
            appendBigEndian(bytes, 0, 2);
            appendBigEndian(bytes, name.size() + 1, 1);
            const std::size_t size = attributeEntrySize + name.size();
            bytes.append(name).append(paddedToFour(size + 1) - size, '\0');
            offset += value.size();
        }
        for (const auto& [name, value] : attributes_) bytes += value;
    }

    static void appendEntry(std::string& bytes, std::uint32_t id, std::uint64_t offset, std::uint64_t length) {
        for (const std::uint64_t field : {std::uint64_t{id}, offset, length}) appendBigEndian(bytes, field, 4);
    }

    std::uint64_t dataOffset() const {
        return headerSize + finderInfoSize + finderInfoPadding + attributesHeaderSize + entriesSize_;
    }
    std::uint64_t forkOffset() const { return dataOffset() + dataSize_; }

    std::string_view fork_;
    std::string information_ = std::string(finderInfoSize, '\0');
    std::vector<std::pair<std::string_view, std::string_view>> attributes_;
    std::uint64_t entriesSize_ = 0;
    std::uint64_t dataSize_ = 0;
};

} // namespace

bool AppleDouble::isRecognized(std::string_view bytes) { return bytes.starts_with(magic); }

AppleDouble AppleDouble::parse(std::string_view bytes) { return Parser(bytes).parse(); }

std::string AppleDouble::serialized() const { return Serializer(attributes).serialized(); }

bool isBlankAttribute(std::string_view name, std::string_view value) {
    if (name == finderInfo) return value.find_first_not_of('\0') == std::string_view::npos;
    if (name != resourceFork) return false;
    const bool isLeftBlank =
        value.size() == blankForkSize && value.substr(blankForkTextOffset).starts_with(blankForkText);
    return value.empty() || isLeftBlank;
}

} // namespace corvane
