#include "Platform/Formats/Cpio/Reader.hpp"

#include "Platform/Formats/ByteCursor.hpp"
#include "Platform/Formats/EntryName.hpp"
#include "Platform/Formats/FormatError.hpp"

#include <algorithm>
#include <array>
#include <vector>

namespace corvane::Cpio {
namespace {

constexpr std::size_t magicSize = 6;
constexpr std::size_t octalHeaderSize = 76;
constexpr std::size_t hexadecimalHeaderSize = 110;
constexpr std::string_view trailerName = "TRAILER!!!";
/// Zeros behind the trailer that fill the last block; tapes had blocks of kilobytes.
constexpr std::uint64_t paddingLimit = std::uint64_t{1} << 20;

/// A name as stored may stand behind "./", and a folder's may end in a slash.
std::string normalized(std::string name) {
    while (name.size() > 1 && name.back() == '/') name.pop_back();
    while (name.starts_with("./")) name.erase(0, 2);
    if (name.empty()) name = ".";
    if (name != ".") EntryName::checkPath(name, "cpio");
    return name;
}

} // namespace

struct Reader::RawHeader {
    Entry entry;
    std::size_t nameSize = 0;
};

void Reader::fail(const std::string& problem) const { throw FormatError("cpio", offset_, problem); }

std::string Reader::take(std::size_t count) {
    std::string bytes(count, '\0');
    const std::size_t found = readFully(archive_, bytes);
    if (found < count) fail("expected " + std::to_string(count) + " more bytes, found " + std::to_string(found));
    offset_ += count;
    return bytes;
}

Reader::RawHeader Reader::readHeader() {
    const std::uint64_t start = offset_;
    const std::string magic = take(magicSize);
    const Form form = magic == "070707"   ? Form::octal
                      : magic == "070701" ? Form::hexadecimal
                      : magic == "070702" ? Form::checked
                                          : Form::unknown;
    if (form == Form::unknown || (form_ != Form::unknown && form != form_)) {
        offset_ = start;
        fail("expected the magic of an entry, found \"" + magic + "\"");
    }
    form_ = form;
    const bool octal = form == Form::octal;
    const std::string fields = take((octal ? octalHeaderSize : hexadecimalHeaderSize) - magicSize);
    ByteCursor cursor(fields, "cpio", start + magicSize);
    RawHeader raw;
    Entry& entry = raw.entry;
    if (octal) {
        const auto field = [&](std::size_t digits) { return cursor.number(digits, 8); };
        entry.device = field(6);
        entry.inode = field(6);
        entry.mode = static_cast<mode_t>(field(6));
        entry.userID = static_cast<std::uint32_t>(field(6));
        entry.groupID = static_cast<std::uint32_t>(field(6));
        entry.linkCount = static_cast<std::uint32_t>(field(6));
        cursor.skip(6); // the number of a device file
        entry.modificationTime = field(11);
        raw.nameSize = field(6);
        entry.size = field(11);
    } else {
        const auto field = [&] { return static_cast<std::uint32_t>(cursor.number(8, 16)); };
        entry.inode = field();
        entry.mode = field();
        entry.userID = field();
        entry.groupID = field();
        entry.linkCount = field();
        entry.modificationTime = field();
        entry.size = field();
        entry.device = std::uint64_t{field()} << 32;
        entry.device |= field();
        cursor.skip(16); // the number of a device file
        raw.nameSize = field();
        expectedChecksum_ = field();
    }
    return raw;
}

std::string Reader::readName(std::size_t size) {
    constexpr std::size_t limit = EntryName::pathLimit + 3;
    if (size < 1 || size > limit) {
        fail("expected a name of 1 to " + std::to_string(limit) + " bytes, found a length of " + std::to_string(size));
    }
    std::string name = take(size);
    if (name.find('\0') != size - 1) fail("expected a name that ends at its only NUL, found another");
    name.pop_back();
    if (form_ != Form::octal) skipPadding(hexadecimalHeaderSize + size);
    return name;
}

/// The hexadecimal form fills names and data up to multiples of four bytes.
void Reader::skipPadding(std::uint64_t length) { take(static_cast<std::size_t>((4 - length % 4) % 4)); }

std::string Reader::readLinkTarget() {
    if (left_ == 0 || left_ >= EntryName::pathLimit) {
        fail("expected the target of a link, found " + std::to_string(left_) + " bytes");
    }
    std::string target(static_cast<std::size_t>(left_), '\0');
    if (readFully(*this, target) < target.size() || target.find('\0') != std::string::npos) {
        fail("expected the target of a link without NUL, found one");
    }
    return target;
}

std::optional<Entry> Reader::next() {
    if (ended_) return std::nullopt;
    skipData();
    RawHeader raw = readHeader();
    Entry& entry = raw.entry;
    const std::string name = readName(raw.nameSize);
    length_ = left_ = entry.size;
    checksum_ = 0;
    isChecked_ = form_ == Form::checked && entry.isFile();
    if (name == trailerName) {
        ended_ = true;
        if (entry.size != 0) fail("expected a trailer without data, found some");
        requireZerosToTheEnd();
        return std::nullopt;
    }
    namesSize_ += name.size();
    if (++entryCount_ > entryLimit || namesSize_ > namesLimit) fail("expected fewer entries");
    entry.path = normalized(name);
    if (entry.isDirectory() && entry.size != 0) fail("expected a folder without data, found some");
    if (entry.isSymbolicLink()) {
        entry.linkTarget = readLinkTarget();
        entry.size = 0;
    }
    return std::move(raw.entry);
}

std::size_t Reader::read(std::span<char> buffer) {
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), left_));
    if (wanted == 0) return 0;
    const std::size_t count = archive_.read(buffer.first(wanted));
    if (count == 0) fail("expected " + std::to_string(left_) + " more bytes of data, found the end");
    offset_ += count;
    left_ -= count;
    if (isChecked_) countChecksum(buffer.first(count));
    return count;
}

/// The checksum of the third form is the sum of a file's bytes modulo 2^32; links have none.
void Reader::countChecksum(std::span<const char> bytes) {
    for (const char byte : bytes) checksum_ += static_cast<unsigned char>(byte);
    if (left_ == 0 && checksum_ != expectedChecksum_) fail("expected another checksum of the data");
}

void Reader::skipData() {
    if (form_ == Form::unknown) return;
    std::vector<char> buffer(static_cast<std::size_t>(std::min<std::uint64_t>(left_, sourceBufferSize)));
    while (left_ > 0) read(buffer);
    if (form_ != Form::octal) skipPadding(length_);
    length_ = 0;
}

void Reader::requireZerosToTheEnd() {
    std::array<char, 4096> buffer{};
    const std::uint64_t limit = offset_ + paddingLimit;
    while (const std::size_t count = archive_.read(buffer)) {
        if (std::any_of(buffer.begin(), buffer.begin() + count, [](char byte) { return byte != 0; })) {
            fail("expected zeros after the last entry, found other bytes");
        }
        offset_ += count;
        if (offset_ > limit) fail("expected fewer zeros after the last entry");
    }
}

} // namespace corvane::Cpio
