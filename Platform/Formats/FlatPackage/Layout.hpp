#pragma once

#include "Support/XML.hpp"

#include <cstddef>
#include <string>

/// The documents of a package as text: four blanks a level, and no line feed at the end.
namespace corvane::FlatPackage {

/// Whether the document says that it stands alone. Both are seen; the meaning is the same.
enum class Declaration { plain, standalone };

/// Puts each element below this one, which holds no text, on a line of its own.
/// @param level how deep the element itself stands
void layOut(const XML::Node& element, std::size_t level);

/// The document as it is, behind an XML declaration.
std::string documentText(const XML::Document& document, Declaration declaration);

} // namespace corvane::FlatPackage
