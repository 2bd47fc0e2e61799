#include "Platform/Formats/Cpio/Writer.hpp"

#include "Platform/Formats/FormatError.hpp"

namespace corvane::Cpio {
namespace {

constexpr std::uint64_t blockSize = 512;

std::string octal(std::uint64_t value, std::size_t digits, std::string_view what) {
    std::string text(digits, '0');
    for (std::size_t index = digits; index-- > 0; value >>= 3) text[index] = static_cast<char>('0' + (value & 7));
    if (value != 0) throw FormatError("the " + std::string(what) + " is too large for its field");
    return text;
}

} // namespace

void Writer::emit(std::string_view bytes) {
    sink_(bytes);
    offset_ += bytes.size();
}

void Writer::header(std::string_view name, const Entry& entry, std::uint64_t size) {
    std::string bytes = "070707";
    try {
        bytes += octal(0, 6, "device");
        bytes += octal(entry.inode & inodeMask, 6, "inode number");
        bytes += octal(entry.mode, 6, "mode");
        bytes += octal(entry.userID, 6, "user number");
        bytes += octal(entry.groupID, 6, "group number");
        bytes += octal(entry.linkCount, 6, "number of links");
        bytes += octal(0, 6, "device");
        bytes += octal(entry.modificationTime, 11, "time");
        bytes += octal(name.size() + 1, 6, "length of the name");
        bytes += octal(size, 11, "size");
    } catch (const FormatError& error) {
        throw FormatError("cpio: " + std::string(name) + ": " + error.what());
    }
    bytes += name;
    bytes += '\0';
    emit(bytes);
}

void Writer::copy(ByteSource& data, std::uint64_t size) {
    buffer_.resize(sourceBufferSize);
    while (const std::size_t count = data.read(buffer_)) {
        if (count > size) throw FormatError("cpio: a file grew while it was archived");
        size -= count;
        emit({buffer_.data(), count});
    }
    if (size != 0) throw FormatError("cpio: a file shrank while it was archived");
}

void Writer::add(const Entry& entry, ByteSource* data) {
    ++count_;
    const std::string name = entry.path == "." ? entry.path : "./" + entry.path;
    header(name, entry, entry.isSymbolicLink() ? entry.linkTarget.size() : entry.size);
    if (entry.isSymbolicLink()) emit(entry.linkTarget);
    if (data != nullptr) copy(*data, entry.size);
}

void Writer::finish() {
    header("TRAILER!!!", {.mode = 0, .inode = count_}, 0);
    emit(std::string((blockSize - offset_ % blockSize) % blockSize, '\0'));
}

} // namespace corvane::Cpio
