// Reads bytes as a requirement's text, and asks it about some code.

#include "Platform/Formats/CodeSignature/Requirement.hpp"
#include "Platform/Formats/FormatError.hpp"

#include <cstddef>
#include <cstdint>
#include <string_view>

using namespace corvane;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const PropertyList::Value list{PropertyList::Dictionary{{"Key", {"1.10"}}}};
    const CodeSignature::RequirementSubject subject{
        .identifier = "a", .cdhashes = {}, .infoPropertyList = &list, .entitlements = &list};
    try {
        CodeSignature::Requirement::parseText({reinterpret_cast<const char*>(data), size}).isMet(subject);
    } catch (const FormatError&) {
    }
    return 0;
}
