#include "Platform/Formats/Xar/Archive.hpp"

#include "Platform/Formats/ByteSource.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Gzip/Reader.hpp"
#include "Support/FileError.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>

namespace corvane::Xar {
namespace {

UniqueDescriptor openFile(const FileURL& url) {
    UniqueDescriptor descriptor(::open(url.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!descriptor) throw FileError("Cannot open", url, lastSystemError());
    return descriptor;
}

std::uint64_t sizeOfRegularFile(const UniqueDescriptor& descriptor, const FileURL& url) {
    struct stat status {};
    if (::fstat(descriptor.get(), &status) != 0) throw FileError("Cannot read", url, lastSystemError());
    if (!S_ISREG(status.st_mode)) throw FormatError("xar: expected a file, found a folder or device");
    return static_cast<std::uint64_t>(status.st_size);
}

/// Bytes of the file; the caller has checked that the range lies in it and is not large.
std::string readRange(int descriptor, const FileURL& url, std::uint64_t offset, std::uint64_t length) {
    FileRange range(descriptor, url, offset, length);
    return readAll(range, length, "xar");
}

void checkContentsLengths(const Header& header, std::uint64_t fileSize) {
    const std::uint64_t available = fileSize - std::min<std::uint64_t>(fileSize, header.size);
    const std::uint64_t limit = std::min(available, Archive::compressedContentsLimit);
    if (header.compressedLength > limit) {
        throw FormatError("xar", 8,
                          "expected a compressed table of contents of at most " + std::to_string(limit) +
                              " bytes, found a length of " + std::to_string(header.compressedLength));
    }
    if (header.uncompressedLength > XML::Document::sizeLimit) {
        throw FormatError("xar", 16,
                          "expected a table of contents of at most " + std::to_string(XML::Document::sizeLimit) +
                              " bytes, found a length of " + std::to_string(header.uncompressedLength));
    }
}

std::string inflatedContents(const Header& header, std::string_view compressed) {
    MemorySource source(compressed);
    Gzip::Reader reader(source, Gzip::Framing::zlib);
    std::string text = readAll(reader, header.uncompressedLength, "xar: table of contents");
    if (text.size() != header.uncompressedLength) {
        throw FormatError("xar", 16,
                          "expected a table of contents of " + std::to_string(header.uncompressedLength) +
                              " bytes, found " + std::to_string(text.size()));
    }
    return text;
}

} // namespace

Archive::Archive(FileURL url, UniqueDescriptor descriptor, std::uint64_t fileSize, Header header,
                 std::string compressed)
    : url_(std::move(url)),
      descriptor_(std::move(descriptor)),
      fileSize_(fileSize),
      header_(header),
      compressedContents_(std::move(compressed)),
      document_(XML::Document::parse(inflatedContents(header_, compressedContents_), "xar: table of contents")),
      contents_(TableOfContents::parse(document_, fileSize_ - header_.heapOffset())) {}

Archive Archive::openUnverified(const FileURL& url) {
    UniqueDescriptor descriptor = openFile(url);
    const std::uint64_t size = sizeOfRegularFile(descriptor, url);
    const Header header = Header::parse(readRange(descriptor.get(), url, 0, std::min<std::uint64_t>(size, 65535)));
    checkContentsLengths(header, size);
    std::string compressed = readRange(descriptor.get(), url, header.size, header.compressedLength);
    return {url, std::move(descriptor), size, header, std::move(compressed)};
}

Archive Archive::open(const FileURL& url) {
    Archive archive = openUnverified(url);
    archive.verifyChecksum();
    return archive;
}

void Archive::verifyChecksum() const {
    const auto& stated = contents_.checksum;
    const auto kind = stated && stated->style != "none" ? digestKind(stated->style) : std::nullopt;
    if (kind != header_.checksum || (stated && !kind && stated->style != "none")) {
        throw FormatError("xar: the header and the table of contents name different checksum algorithms");
    }
    if (!kind) return;
    if (stated->stored.length != digestSize(*kind)) {
        throw FormatError("xar: expected a checksum of " + std::to_string(digestSize(*kind)) + " bytes, found " +
                          std::to_string(stated->stored.length));
    }
    const std::string found = digest(*kind, compressedContents_);
    const std::string expected = heapBytes(stated->stored, found.size());
    if (found == expected) return;
    throw FormatError("xar", heapOffset() + stated->stored.offset,
                      "expected the checksum " + hexadecimal(found) + " of the table of contents, found " +
                          hexadecimal(expected));
}

std::string Archive::heapBytes(const HeapRange& range, std::size_t limit) const {
    if (range.length > limit) throw FormatError("xar", heapOffset() + range.offset, "expected fewer bytes");
    return readRange(descriptor_.get(), url_, heapOffset() + range.offset, range.length);
}

} // namespace corvane::Xar
