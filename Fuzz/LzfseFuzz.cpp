// Decodes bytes both ways. The first two bytes are the size that is asked for, times sixteen.

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Lzfse/Lzfse.hpp"

#include <cstdint>
#include <cstdlib>

using namespace corvane;

namespace {

void decode(std::string (*decoder)(std::string_view, std::size_t), std::string_view bytes, std::size_t size) try {
    if (decoder(bytes, size).size() != size) std::abort();
} catch (const FormatError&) {
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const std::size_t plainSize = (std::size_t{data[0]} << 8 | data[1]) << 4;
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 2, size - 2);
    decode(Lzfse::decode, bytes, plainSize);
    decode(Lzfse::decodeLzvn, bytes, plainSize);
    return 0;
}
