#pragma once

#include "Platform/Formats/Lzfse/Output.hpp"

#include <string_view>

namespace corvane::Lzfse {

/// Decodes LZVN behind what the output has already, to which matches may reach back. Stops at the end mark or when
/// `size` bytes are there. @throws FormatError also for more or fewer bytes
void decodeLzvn(std::string_view stream, std::size_t size, Output& output);

} // namespace corvane::Lzfse
