// Decodes bytes as ADC. The first two bytes are the size that is asked for.

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Udif/Adc.hpp"

#include <cstdint>
#include <cstdlib>

using namespace corvane;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) try {
    if (size < 2) return 0;
    const std::size_t plainSize = std::size_t{data[0]} << 8 | data[1];
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 2, size - 2);
    if (Udif::decodeAdc(bytes, plainSize).size() != plainSize) std::abort();
    return 0;
} catch (const FormatError&) {
    return 0;
}
