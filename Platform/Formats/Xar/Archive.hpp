#pragma once

#include "Platform/Formats/Xar/Header.hpp"
#include "Platform/Formats/Xar/TableOfContents.hpp"
#include "Support/FileURL.hpp"
#include "Support/UniqueDescriptor.hpp"
#include "Support/XML.hpp"

#include <cstdint>
#include <string>

namespace corvane::Xar {

/// An archive that is open for reading. Its metadata are in memory; data are read from the file when they are asked
/// for, see DataReader. For one thread at a time, but for reads through the descriptor that name their offset.
class Archive {
  public:
    /// Largest compressed table of contents, in bytes. The XML's own limit bounds it once it is inflated.
    static constexpr std::uint64_t compressedContentsLimit = std::uint64_t{64} << 20;

    /// Opens a file and reads its table of contents, without comparing the checksum of that table.
    /// @throws FileError; FormatError and XML::Error, which do not name the file
    static Archive openUnverified(const FileURL& url);
    /// The same, and calls `verifyChecksum`.
    static Archive open(const FileURL& url);

    /// Compares the digest of the compressed table of contents with the one in the heap. An archive whose header
    /// states no digest has nothing to compare. @throws FormatError when they differ or contradict each other
    void verifyChecksum() const;

    const FileURL& url() const { return url_; }
    int descriptor() const { return descriptor_.get(); }
    std::uint64_t fileSize() const { return fileSize_; }

    const Header& header() const { return header_; }
    const std::string& compressedContents() const { return compressedContents_; }
    const XML::Document& document() const { return document_; }
    const TableOfContents& contents() const { return contents_; }

    /// Offset of the heap in the file; every offset in the table of contents counts from here.
    std::uint64_t heapOffset() const { return header_.heapOffset(); }
    /// Offset in the file of the first byte that belongs to nothing in the table of contents: a stapled ticket, or
    /// what a careless writer left.
    std::uint64_t trailerOffset() const { return heapOffset() + contents_.describedSize(); }

    /// Bytes of the heap. @throws FormatError when there are more than `limit`
    std::string heapBytes(const HeapRange& range, std::size_t limit) const;

  private:
    Archive(FileURL url, UniqueDescriptor descriptor, std::uint64_t fileSize, Header header, std::string compressed);

    FileURL url_;
    UniqueDescriptor descriptor_;
    std::uint64_t fileSize_;
    Header header_;
    std::string compressedContents_;
    XML::Document document_;
    TableOfContents contents_;
};

} // namespace corvane::Xar
