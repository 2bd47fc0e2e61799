// Reads bytes as an AppleDouble file. What can be read must read the same when it was written again.

#include "Platform/Formats/ExtendedAttributes/AppleDouble.hpp"
#include "Platform/Formats/FormatError.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

using corvane::AppleDouble;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    AppleDouble file;
    try {
        file = AppleDouble::parse({reinterpret_cast<const char*>(data), size});
    } catch (const corvane::FormatError&) {
        return 0;
    }
    if (AppleDouble::parse(file.serialized()).attributes != file.attributes) std::abort();
    return 0;
}
