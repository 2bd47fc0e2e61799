// Reads bytes as a property list, XML or binary.

#include "Support/PropertyList.hpp"

#include <cstdint>

using namespace corvane;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        PropertyList::parse({reinterpret_cast<const char*>(data), size}, "list");
    } catch (const PropertyList::Error&) {
    }
    return 0;
}
