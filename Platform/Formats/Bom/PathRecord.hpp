#pragma once

#include "Platform/Formats/Bom/Entry.hpp"
#include "Platform/Formats/ByteCursor.hpp"

#include <string>

/// The block that holds all of an entry but its path.
namespace corvane::Bom::PathRecord {

/// The size is that modulo 4 GiB. @throws FormatError for what the record cannot hold
std::string encode(const Entry& entry);

/// Fills everything but the path. Old packagers and other programs than installers cut records short; what is missing
/// stays 0. @throws FormatError
void decode(ByteCursor record, Entry& entry);

} // namespace corvane::Bom::PathRecord
