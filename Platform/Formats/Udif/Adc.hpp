#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace corvane::Udif {

/// Decodes the oldest codec of images: runs of literals, and matches with distances of up to 64 KiB.
/// @param size of the plain bytes
/// @throws FormatError when the stream is damaged or gives more or fewer bytes
std::string decodeAdc(std::string_view stream, std::size_t size);

} // namespace corvane::Udif
