#pragma once

#include "Platform/Formats/ByteCursor.hpp"
#include "Platform/Formats/RandomAccess.hpp"

#include <functional>
#include <string_view>

namespace corvane::HfsPlus {

/// Gives every record of a B-tree, in the order of its leaves: the key behind its length, and what belongs to it. The
/// offsets of the cursors are those in the file. Whoever wants all records has no need of the nodes above the leaves.
/// A file of no bytes has no records.
/// @param format how errors call the tree; a literal
/// @throws FormatError, also for a number of records other than the header states
void forEachRecord(const RandomAccess& file, std::string_view format,
                   const std::function<void(ByteCursor key, ByteCursor value)>& use);

} // namespace corvane::HfsPlus
