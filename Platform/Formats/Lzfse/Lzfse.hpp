#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// The two codecs of Apple's own. Both are decoded in one piece: blocks of images and compressed files are small.
namespace corvane::Lzfse {

/// Decodes a stream of blocks: entropy coded, LZVN, stored.
/// @param size of the plain bytes; bytes behind the stream's end are passed over
/// @throws FormatError when the stream is damaged or gives more or fewer bytes
std::string decode(std::string_view stream, std::size_t size);

/// Decodes LZVN without a header. Stops at the end mark or when the size is reached.
/// @throws FormatError
std::string decodeLzvn(std::string_view stream, std::size_t size);

} // namespace corvane::Lzfse
