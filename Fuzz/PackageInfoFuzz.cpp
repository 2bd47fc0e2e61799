// Reads bytes as the description of a component, and as a list of rules for bundles. What a description is made of by
// such rules must read back.

#include "Platform/Formats/FlatPackage/PackageInfo.hpp"
#include "Platform/Formats/FormatError.hpp"

#include <cstdint>
#include <cstdlib>

using namespace corvane;

namespace {

void summarize(std::string_view bytes) {
    try {
        FlatPackage::summarize(XML::Document::parse(bytes, "PackageInfo"), "PackageInfo");
    } catch (const FormatError&) {
    } catch (const XML::Error&) {
    }
}

void describe(std::string_view bytes) {
    const std::vector<FlatPackage::Bundle> bundles{
        {.path = "A.app", .identifier = "a", .shortVersion = "1.0", .version = "1"},
        {.path = "A.app/B.bundle", .identifier = "b", .version = "2", .isNested = true},
        {.path = "C", .identifier = "c", .sourceVersion = "3", .buildVersion = "4"}};
    try {
        const FlatPackage::PackageInfo info{
            .identifier = "i", .components = listedComponents(PropertyList::parse(bytes, "list"), bundles)};
        const auto text = FlatPackage::serialized(info);
        const auto summary = FlatPackage::summarize(XML::Document::parse(text, "PackageInfo"), "PackageInfo");
        if (summary.bundles.size() != info.components.size()) std::abort();
    } catch (const PropertyList::Error&) {
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    summarize(bytes);
    describe(bytes);
    return 0;
}
