#pragma once

#include "Platform/Formats/Xar/NewEntry.hpp"
#include "Support/XML.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace corvane::Xar {

/// The table of contents of a new archive whose entries are laid out. The checksum comes first in the heap.
/// As in archives of package tools, the top level is listed from the last entry to the first.
XML::Document makeContentsDocument(const std::vector<NewEntry>& entries, DigestKind checksum,
                                   std::int64_t creationTime);

} // namespace corvane::Xar
