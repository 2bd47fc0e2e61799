#include "Support/BinaryPropertyList.hpp"

#include <bit>

namespace corvane::PropertyList {
namespace {

constexpr std::string_view magic = "bplist0";
constexpr std::size_t headerSize = 8;
constexpr std::size_t trailerSize = 32;
/// Objects may be referred to many times, and every reference becomes a value of its own. This bounds what all of them
/// may take, in bytes.
constexpr std::size_t expansionLimit = std::size_t{64} << 20;

void appendUTF8(std::string& text, char32_t scalar) {
    const auto tail = [&](int shift) { text += static_cast<char>(0x80U | ((scalar >> shift) & 0x3FU)); };
    if (scalar < 0x80) {
        text += static_cast<char>(scalar);
    } else if (scalar < 0x800) {
        text += static_cast<char>(0xC0U | (scalar >> 6));
        tail(0);
    } else if (scalar < 0x10000) {
        text += static_cast<char>(0xE0U | (scalar >> 12));
        tail(6);
        tail(0);
    } else {
        text += static_cast<char>(0xF0U | (scalar >> 18));
        tail(12);
        tail(6);
        tail(0);
    }
}

class BinaryReader {
  public:
    explicit BinaryReader(std::string_view bytes) : bytes_(bytes) {
        if (bytes.size() < headerSize + trailerSize) fail("expected a trailer of 32 bytes", bytes.size());
        const std::size_t trailer = bytes.size() - trailerSize;
        offsetSize_ = static_cast<std::size_t>(unsignedInteger(trailer + 6, 1));
        referenceSize_ = static_cast<std::size_t>(unsignedInteger(trailer + 7, 1));
        objectCount_ = unsignedInteger(trailer + 8, 8);
        top_ = unsignedInteger(trailer + 16, 8);
        offsetTable_ = unsignedInteger(trailer + 24, 8);
        if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8) {
            fail("expected integers of 1 to 8 bytes", trailer + 6);
        }
        if (offsetTable_ > trailer || objectCount_ > (trailer - offsetTable_) / offsetSize_) {
            fail("expected a table of offsets within the list", trailer + 24);
        }
    }

    Value root() { return object(top_, 0); }

  private:
    /// The elements of an object: how many, and where they start.
    struct Extent {
        std::uint64_t count;
        std::uint64_t start;
    };

    [[noreturn]] static void fail(const std::string& problem, std::uint64_t offset) {
        throw Error("offset " + std::to_string(offset) + ": " + problem);
    }

    std::string_view take(std::uint64_t offset, std::uint64_t size) const {
        if (offset > bytes_.size() || size > bytes_.size() - offset) fail("expected more bytes, found the end", offset);
        return bytes_.substr(static_cast<std::size_t>(offset), static_cast<std::size_t>(size));
    }

    std::uint64_t unsignedInteger(std::uint64_t offset, std::uint64_t size) const {
        std::uint64_t value = 0;
        for (const char byte : take(offset, size)) value = (value << 8) | static_cast<unsigned char>(byte);
        return value;
    }

    void spend(std::uint64_t size) {
        if (size > budget_) throw Error("expected a smaller list, found references that expand without bound");
        budget_ -= static_cast<std::size_t>(size);
    }

    Value object(std::uint64_t number, std::size_t depth) {
        if (number >= objectCount_) fail("expected an object's number, found " + std::to_string(number), offsetTable_);
        if (depth > depthLimit) fail("expected fewer levels", offsetTable_);
        spend(sizeof(Value));
        const std::uint64_t offset = unsignedInteger(offsetTable_ + number * offsetSize_, offsetSize_);
        const auto marker = static_cast<unsigned>(unsignedInteger(offset, 1));
        const unsigned low = marker & 15U;
        switch (marker >> 4) {
        case 0x0:
            return simple(marker, offset);
        case 0x1:
            return integer(offset, low);
        case 0x2:
            return {real(offset, low)};
        case 0x3:
            return {Date{real(offset, low)}};
        case 0x4:
            return {Data{text(extent(offset, low), 1)}};
        case 0x5:
            return {text(extent(offset, low), 1)};
        case 0x6:
            return {utf16(text(extent(offset, low), 2))};
        case 0x8:
            return {UID{unsignedInteger(offset + 1, low < 8 ? low + 1 : 8)}};
        case 0xA:
            return array(extent(offset, low), depth);
        case 0xD:
            return dictionary(extent(offset, low), depth);
        default:
            fail("expected an object, found the marker " + std::to_string(marker), offset);
        }
    }

    static Value simple(unsigned marker, std::uint64_t offset) {
        if (marker == 8 || marker == 9) return {marker == 9};
        fail("expected true or false, found the marker " + std::to_string(marker), offset);
    }

    /// Integers of up to four bytes are unsigned, those of eight signed; sixteen bytes hold large unsigned ones.
    Value integer(std::uint64_t offset, unsigned low) const {
        if (low > 4) fail("expected an integer of at most 16 bytes", offset);
        if (low < 4) return {static_cast<std::int64_t>(unsignedInteger(offset + 1, std::uint64_t{1} << low))};
        const std::uint64_t high = unsignedInteger(offset + 1, 8);
        const std::uint64_t value = unsignedInteger(offset + 9, 8);
        if (high == 0 && value > INT64_MAX) return {value};
        const bool fits = high == (value > INT64_MAX ? UINT64_MAX : 0);
        if (!fits) fail("expected an integer of 64 bits", offset);
        return {static_cast<std::int64_t>(value)};
    }

    double real(std::uint64_t offset, unsigned low) const {
        if (low == 3) return std::bit_cast<double>(unsignedInteger(offset + 1, 8));
        if (low != 2) fail("expected a real number of 4 or 8 bytes", offset);
        return static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(unsignedInteger(offset + 1, 4))));
    }

    /// A count of 15 stands for an integer object behind the marker.
    Extent extent(std::uint64_t offset, unsigned low) const {
        if (low < 15) return {low, offset + 1};
        const auto marker = static_cast<unsigned>(unsignedInteger(offset + 1, 1));
        if (marker < 0x10 || marker > 0x13) fail("expected a count", offset + 1);
        const std::uint64_t size = std::uint64_t{1} << (marker & 15U);
        return {unsignedInteger(offset + 2, size), offset + 2 + size};
    }

    std::string text(const Extent& extent, std::uint64_t unit) {
        if (extent.count > bytes_.size() / unit) fail("expected fewer characters", extent.start);
        spend(extent.count * unit);
        return std::string(take(extent.start, extent.count * unit));
    }

    static std::string utf16(const std::string& units) {
        const auto unit = [&](std::size_t at) {
            return static_cast<char32_t>((static_cast<unsigned char>(units[at]) << 8) |
                                         static_cast<unsigned char>(units[at + 1]));
        };
        std::string result;
        for (std::size_t at = 0; at < units.size(); at += 2) {
            char32_t scalar = unit(at);
            const bool isHigh = scalar >= 0xD800 && scalar < 0xDC00;
            if (isHigh && at + 2 < units.size() && unit(at + 2) >= 0xDC00 && unit(at + 2) < 0xE000) {
                scalar = 0x10000 + ((scalar - 0xD800) << 10) + (unit(at + 2) - 0xDC00);
                at += 2;
            } else if (scalar >= 0xD800 && scalar < 0xE000) {
                scalar = 0xFFFD;
            }
            appendUTF8(result, scalar);
        }
        return result;
    }

    std::uint64_t reference(const Extent& extent, std::uint64_t index) const {
        return unsignedInteger(extent.start + index * referenceSize_, referenceSize_);
    }

    void requireReferences(const Extent& extent, std::uint64_t perElement) const {
        if (extent.count > bytes_.size()) fail("expected fewer elements", extent.start);
        take(extent.start, extent.count * perElement * referenceSize_);
    }

    Value array(const Extent& extent, std::size_t depth) {
        requireReferences(extent, 1);
        Array items;
        for (std::uint64_t index = 0; index < extent.count; ++index) {
            items.push_back(object(reference(extent, index), depth + 1));
        }
        return {std::move(items)};
    }

    Value dictionary(const Extent& extent, std::size_t depth) {
        requireReferences(extent, 2);
        Dictionary entries;
        for (std::uint64_t index = 0; index < extent.count; ++index) {
            const Value key = object(reference(extent, index), depth + 1);
            const auto* name = key.get<std::string>();
            if (name == nullptr) fail("expected keys that are strings", extent.start);
            entries.insert_or_assign(*name, object(reference(extent, extent.count + index), depth + 1));
        }
        return {std::move(entries)};
    }

    std::string_view bytes_;
    std::size_t offsetSize_ = 0;
    std::size_t referenceSize_ = 0;
    std::uint64_t objectCount_ = 0;
    std::uint64_t top_ = 0;
    std::uint64_t offsetTable_ = 0;
    std::size_t budget_ = expansionLimit;
};

} // namespace

bool isBinary(std::string_view bytes) { return bytes.starts_with(magic); }

Value parseBinary(std::string_view bytes) { return BinaryReader(bytes).root(); }

} // namespace corvane::PropertyList
