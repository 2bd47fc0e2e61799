#include "Platform/Formats/MachO/Image.hpp"

#include "Platform/Formats/ByteCursor.hpp"
#include "Platform/Formats/ByteSource.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Support/FileError.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <array>

namespace corvane::MachO {
namespace {

constexpr const char* format = "Mach-O";

constexpr std::uint32_t magic = 0xFEEDFACE;
constexpr std::uint32_t magic64 = 0xFEEDFACF;
constexpr std::size_t headerSizeOf(bool isWide) { return isWide ? 32 : 28; }

/// Of a processor's subtype: its highest byte holds capabilities.
constexpr std::uint32_t subtypeMask = 0x00FFFFFF;

constexpr std::uint32_t segmentCommand = 0x1;
constexpr std::uint32_t segmentCommand64 = 0x19;
constexpr std::uint32_t codeSignatureCommand = 0x1D;

/// Bytes of load commands. Programs of hundreds of megabytes have some ten kilobytes.
constexpr std::uint64_t commandsLimit = std::uint64_t{16} << 20;

/// Largest exponent of a slice's alignment that linkers write: 32 KiB.
constexpr std::uint32_t alignmentLimit = 15;

std::string readRange(int descriptor, const FileURL& name, std::uint64_t offset, std::uint64_t size) {
    FileRange range(descriptor, name, offset, size);
    return readAll(range, static_cast<std::size_t>(size), format);
}

/// Fields in the byte order and width of a slice.
class Fields {
  public:
    Fields(ByteCursor cursor, bool isBigEndian, bool isWide)
        : cursor_(cursor), isBigEndian_(isBigEndian), isWide_(isWide) {}

    /// Begins with the magic. @throws FormatError when it is none
    static Fields of(std::string_view header) {
        ByteCursor cursor(header, format);
        ByteCursor swapped = cursor;
        const std::uint32_t first = cursor.u32BigEndian();
        const std::uint32_t second = swapped.u32LittleEndian();
        const auto isMagic = [](std::uint32_t number) { return number == magic || number == magic64; };
        if (!isMagic(first) && !isMagic(second)) cursor.fail("expected the magic of a slice, found another");
        return {cursor, isMagic(first), (isMagic(first) ? first : second) == magic64};
    }

    bool isWide() const { return isWide_; }
    std::uint32_t number() { return isBigEndian_ ? cursor_.u32BigEndian() : cursor_.u32LittleEndian(); }
    /// As wide as an address.
    std::uint64_t address() {
        if (!isWide_) return number();
        return isBigEndian_ ? cursor_.u64BigEndian() : cursor_.u64LittleEndian();
    }
    std::string_view name() {
        const std::string_view field = cursor_.bytes(16);
        return field.substr(0, field.find('\0'));
    }
    void skip(std::size_t count) { cursor_.skip(count); }
    /// The next bytes on their own.
    Fields part(std::size_t size) {
        const std::uint64_t start = cursor_.offset();
        return {ByteCursor(cursor_.bytes(size), format, start), isBigEndian_, isWide_};
    }
    Fields inside(std::string_view bytes, std::uint64_t base) const {
        return {ByteCursor(bytes, format, base), isBigEndian_, isWide_};
    }
    [[noreturn]] void fail(std::string_view problem) const { cursor_.fail(problem); }

  private:
    ByteCursor cursor_;
    bool isBigEndian_, isWide_;
};

/// Collects what the load commands of a slice say.
class CommandReader {
  public:
    explicit CommandReader(std::uint64_t sliceSize) : sliceSize_(sliceSize) {}

    /// Reads the command that comes next.
    void read(Fields& commands) {
        const std::uint32_t kind = commands.number();
        const std::uint32_t size = commands.number();
        if (size < 8) commands.fail("expected a load command of at least 8 bytes, found " + std::to_string(size));
        Fields command = commands.part(size - 8);
        if (kind == codeSignatureCommand) {
            const std::uint64_t offset = command.number();
            take(image_.signature, {offset, command.number()}, command);
        } else if (kind == (command.isWide() ? segmentCommand64 : segmentCommand)) {
            readSegment(command);
        }
    }

    Image finish() const { return image_; }

  private:
    void readSegment(Fields& command) {
        const std::string_view name = command.name();
        command.address(); // in memory
        command.address();
        const std::uint64_t offset = command.address();
        const std::uint64_t size = command.address();
        if (name == "__LINKEDIT") take(image_.linkEdit, {offset, size}, command);
        command.skip(8); // protections
        const std::uint32_t sectionCount = command.number();
        command.skip(4); // flags
        // Each reads from the command, so no count outlasts it.
        for (std::uint32_t index = 0; index < sectionCount; ++index) readSection(command, name);
    }

    void readSection(Fields& command, std::string_view segment) {
        const std::string_view name = command.name();
        command.name(); // of the segment
        command.address();
        const std::uint64_t size = command.address();
        const std::uint64_t offset = command.number();
        if (segment == "__TEXT" && name == "__info_plist") take(image_.infoPropertyList, {offset, size}, command);
        command.skip(command.isWide() ? 28 : 24);
    }

    void take(std::optional<Range>& place, Range range, const Fields& command) const {
        if (place) command.fail("expected one such load command, found two");
        if (range.offset > sliceSize_ || range.size > sliceSize_ - range.offset) {
            command.fail("expected bytes within the slice, found an end behind it");
        }
        place = range;
    }

    std::uint64_t sliceSize_;
    Image image_;
};

/// Whether the bytes between two parts of a file are zero and fewer than the alignment, an exponent, would need.
bool isPadding(int descriptor, const FileURL& name, std::uint64_t start, std::uint64_t end, std::uint32_t alignment) {
    if (start > end || alignment > alignmentLimit || end - start >= std::uint64_t{1} << alignment) return false;
    const std::string gap = readRange(descriptor, name, start, end - start);
    return gap.find_first_not_of('\0') == std::string::npos;
}

bool endsWithLinkEdit(int descriptor, const FileURL& name, const Slice& slice) {
    const auto linkEdit = Image::read(descriptor, name, slice).linkEdit;
    return linkEdit && linkEdit->end() == slice.size;
}

struct AlignedSlice {
    Slice slice;
    std::uint32_t alignment = 0;
};

/// The slices of a fat file in the order of their bytes; the file's header must have been found sound.
std::vector<AlignedSlice> aligned(const std::vector<Slice>& slices, std::string_view front, std::size_t slotSize) {
    std::vector<AlignedSlice> found;
    for (std::size_t index = 0; index < slices.size(); ++index) {
        // The alignment follows two numbers, and an offset and a size that are as wide as the slot has them.
        ByteCursor slot(front.substr(8 + index * slotSize, slotSize), format);
        slot.skip(slotSize == 20 ? 16 : 24);
        found.push_back({slices[index], slot.u32BigEndian()});
    }
    std::stable_sort(found.begin(), found.end(), [](const AlignedSlice& left, const AlignedSlice& right) {
        return left.slice.offset < right.slice.offset;
    });
    return found;
}

} // namespace

Image Image::read(int descriptor, const FileURL& name, const Slice& slice) {
    const std::string front =
        readRange(descriptor, name, slice.offset, std::min<std::uint64_t>(slice.size, headerSizeOf(true)));
    Fields header = Fields::of(front);
    const std::uint32_t cpuType = header.number();
    const std::uint32_t cpuSubtype = header.number();
    if (cpuType != slice.cpuType || ((cpuSubtype ^ slice.cpuSubtype) & subtypeMask) != 0) {
        header.fail("expected the architecture that the file's header states, found another");
    }
    header.skip(4); // kind of file
    const std::uint32_t count = header.number();
    const std::uint32_t size = header.number();
    const std::size_t start = headerSizeOf(header.isWide());
    if (slice.size < start || size > slice.size - start || size > commandsLimit) {
        header.fail("expected load commands within the slice, found " + std::to_string(size) + " bytes");
    }
    const std::string bytes = readRange(descriptor, name, slice.offset + start, size);
    Fields commands = header.inside(bytes, start);
    CommandReader reader(slice.size);
    for (std::uint32_t index = 0; index < count; ++index) reader.read(commands);
    return reader.finish();
}

std::string architectureName(const Slice& slice) {
    struct Name {
        std::uint32_t cpuType, cpuSubtype;
        const char* text;
    };
    static constexpr std::array<Name, 15> names{{{0x00000007, 3, "i386"},
                                                 {0x01000007, 3, "x86_64"},
                                                 {0x01000007, 8, "x86_64h"},
                                                 {0x0000000C, 0, "arm"},
                                                 {0x0000000C, 6, "armv6"},
                                                 {0x0000000C, 9, "armv7"},
                                                 {0x0000000C, 11, "armv7s"},
                                                 {0x0000000C, 12, "armv7k"},
                                                 {0x0100000C, 0, "arm64"},
                                                 {0x0100000C, 1, "arm64v8"},
                                                 {0x0100000C, 2, "arm64e"},
                                                 {0x0200000C, 1, "arm64_32"},
                                                 {0x00000012, 0, "ppc"},
                                                 {0x00000012, 10, "ppc7400"},
                                                 {0x01000012, 0, "ppc64"}}};
    const std::uint32_t subtype = slice.cpuSubtype & subtypeMask;
    const auto* found = std::find_if(names.begin(), names.end(), [&](const Name& each) {
        return each.cpuType == slice.cpuType && each.cpuSubtype == subtype;
    });
    if (found != names.end()) return found->text;
    return "cputype " + std::to_string(slice.cpuType) + " subtype " + std::to_string(subtype);
}

bool isTightlyPacked(int descriptor, const FileURL& name) {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) throw FileError("Cannot read", name, lastSystemError());
    const auto size = static_cast<std::uint64_t>(status.st_size);
    const std::string front = readRange(descriptor, name, 0, std::min<std::uint64_t>(size, headerSize));
    const std::vector<Slice> found = slices(front, size);
    if (found.empty()) throw FormatError(format, 0, "expected slices, found none");
    // No slice of a fat file begins before the header's end.
    if (found.front().offset == 0) return endsWithLinkEdit(descriptor, name, found.front());
    const std::size_t slotSize = front.starts_with("\xCA\xFE\xBA\xBF") ? 32 : 20;
    std::uint64_t end = 8 + found.size() * slotSize;
    for (const AlignedSlice& each : aligned(found, front, slotSize)) {
        if (!isPadding(descriptor, name, end, each.slice.offset, each.alignment)) return false;
        if (!endsWithLinkEdit(descriptor, name, each.slice)) return false;
        end = each.slice.offset + each.slice.size;
    }
    return end == size;
}

} // namespace corvane::MachO
