// Reads bytes as a Distribution and fills it in for a product. The result must name the same packages, all of them
// within the product, and filling it in again must change nothing.

#include "Platform/Formats/FlatPackage/Distribution.hpp"
#include "Platform/Formats/FormatError.hpp"

#include <cstdint>
#include <cstdlib>

using namespace corvane;

namespace {

std::string filledIn(const XML::Document& document) {
    FlatPackage::PackageSummary package{.identifier = "a", .version = "1", .installKBytes = "7"};
    package.bundles.push_back({.path = "A.app", .identifier = "b", .version = "2"});
    std::map<std::string, FlatPackage::PackageSummary> packages;
    for (const std::string& name : FlatPackage::referencedPackages(document)) packages.emplace(name, package);
    return FlatPackage::productDistribution(document, packages);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        const XML::Document document = XML::Document::parse({reinterpret_cast<const char*>(data), size}, "document");
        const auto names = FlatPackage::referencedPackages(document);
        const XML::Document once = XML::Document::parse(filledIn(document), "once");
        if (FlatPackage::referencedPackages(once) != names) std::abort();
        const std::string twice = filledIn(once);
        if (filledIn(XML::Document::parse(twice, "twice")) != twice) std::abort();
    } catch (const FormatError&) {
    } catch (const XML::Error&) {
    }
    return 0;
}
