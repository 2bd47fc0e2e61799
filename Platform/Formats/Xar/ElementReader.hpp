#pragma once

#include "Platform/Formats/Xar/Entry.hpp"
#include "Support/XML.hpp"

#include <string>
#include <string_view>

/// Typed values of single elements of a table of contents. What is malformed throws FormatError with the element's
/// name.
namespace corvane::Xar::ElementReader {

/// The text of a child element without white space round it; nothing when there is no such child.
std::optional<std::string> text(const XML::Node& parent, std::string_view name);

/// An unsigned decimal number of 64 bits.
std::uint64_t number(std::string_view digits, std::string_view name);
/// The number in a child element that must be there.
std::uint64_t requiredNumber(const XML::Node& parent, std::string_view name);

/// The range that a child for the offset and a child for the length give, checked to lie in the heap.
HeapRange range(const XML::Node& parent, std::string_view lengthName, std::uint64_t heapSize);

/// Permission bits from the octal text of `mode`.
std::optional<std::uint32_t> mode(const XML::Node& file);
/// Seconds since 1970 of a time such as "2024-10-24T18:09:07Z"; nothing when there is none or it is no time, which
/// real archives contain.
std::optional<std::int64_t> time(const XML::Node& file, std::string_view name);
/// An owner's number; nothing when there is none or it is no number.
std::optional<std::uint32_t> owner(const XML::Node& file, std::string_view name);
/// The one name of a file, checked. Rewritten archives repeat the element with the same text.
std::string fileName(const XML::Node& file);

/// The `data` of a file.
std::optional<Data> data(const XML::Node& file, std::uint64_t heapSize);

} // namespace corvane::Xar::ElementReader
