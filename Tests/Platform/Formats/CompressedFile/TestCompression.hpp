#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace corvane::TestSupport {

/// What a volume keeps of a compressed file.
struct TestCompression {
    std::string attribute;
    std::string resourceFork;
};

/// Compresses as one of the kinds 3, 4 and 7 to 12: really for zlib, by stored pieces for the others. Every other zlib
/// piece is stored, too.
TestCompression testCompression(std::uint32_t kind, std::string_view plain);

} // namespace corvane::TestSupport
