#pragma once

#include "Platform/Formats/Xar/Entry.hpp"
#include "Support/XML.hpp"

#include <functional>
#include <string_view>

namespace corvane::Xar {

/// What an archive's XML says, checked: every number fits, every range lies in the heap, every name can be the name of
/// a file, siblings have different names. Elements that are not modelled stay in the XML document only.
struct TableOfContents {
    std::optional<ContentsChecksum> checksum;
    /// In document order.
    std::vector<Signature> signatures;
    /// When the archive was made, in seconds since 1970 in UTC.
    std::optional<std::int64_t> creationTime;
    /// The top level, in document order.
    std::vector<Entry> entries;

    /// Most entries that an archive may have.
    static constexpr std::size_t entryLimit = std::size_t{1} << 18;

    /// Most folders that may lie in each other. Their XML elements do so as well, and an XML document has its own
    /// limit.
    static constexpr std::size_t depthLimit = XML::Document::depthLimit - 10;

    /// @param heapSize bytes from the heap's start to the end of the file
    /// @throws FormatError
    static TableOfContents parse(const XML::Document& document, std::uint64_t heapSize);

    /// Calls the visitor for every entry, a folder before its content, with the path from the top level.
    void visit(const std::function<void(const std::string& path, const Entry& entry)>& visitor) const;
    /// The entry at a path such as "a.pkg/PackageInfo"; null when there is none.
    const Entry* find(std::string_view path) const;

    /// Heap bytes from the start that hold the checksum and the signatures.
    std::uint64_t reservedSize() const;
    /// Heap bytes up to the end of the last thing described. What follows is no part of the archive.
    std::uint64_t describedSize() const;
};

} // namespace corvane::Xar
