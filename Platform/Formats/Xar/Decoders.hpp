#pragma once

#include "Platform/Formats/ByteSource.hpp"
#include "Platform/Formats/Xar/Entry.hpp"

#include <memory>

namespace corvane::Xar {

/// A source of the decoded bytes of stored ones. Only for encodings other than `stored`.
/// @param encoded must outlive the result
std::unique_ptr<ByteSource> makeDecoder(Encoding encoding, ByteSource& encoded);

} // namespace corvane::Xar
