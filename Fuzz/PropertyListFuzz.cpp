// Reads bytes as a property list, XML or binary. What XML can hold is written as XML, which must read as the same list.

#include "Support/PropertyList.hpp"

#include <cstdint>
#include <cstdlib>

using namespace corvane;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        const auto list = PropertyList::parse({reinterpret_cast<const char*>(data), size}, "list");
        const std::string written = PropertyList::serializedXML(list);
        if (PropertyList::serializedXML(PropertyList::parse(written, "written")) != written) std::abort();
    } catch (const PropertyList::Error&) {
    }
    return 0;
}
