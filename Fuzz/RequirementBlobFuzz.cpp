// Reads bytes as a compiled requirement and as a set of them, and asks what was read about some code.

#include "Platform/Formats/CodeSignature/Requirement.hpp"
#include "Platform/Formats/FormatError.hpp"

#include <cstddef>
#include <cstdint>
#include <string_view>

using namespace corvane;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    static const PropertyList::Value list{PropertyList::Dictionary{{"Key", {"1.10"}}}};
    const CodeSignature::RequirementSubject subject{
        .identifier = "a", .cdhashes = {}, .infoPropertyList = &list, .entitlements = &list};
    try {
        CodeSignature::Requirement::parseBlob(bytes).isMet(subject);
    } catch (const FormatError&) {
    }
    try {
        const auto set = CodeSignature::RequirementSet::parse(bytes);
        if (set.designated) set.designated->isMet(subject);
    } catch (const FormatError&) {
    }
    return 0;
}
