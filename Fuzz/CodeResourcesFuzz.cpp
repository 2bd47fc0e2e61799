// Reads any bytes as the list of a bundle's sealed files, and asks its rules about the paths that it holds.

#include "Platform/Formats/CodeResources/ResourceScan.hpp"
#include "Platform/Formats/CodeResources/SealedResources.hpp"
#include "Platform/Formats/FormatError.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace corvane::CodeResources;

namespace {

/// Paths of a list that are asked about, so that a long one is no slow one.
constexpr int pathLimit = 50;

void askRules(const SealedResources& sealed) {
    sealed.rules.areWeak(sealed.version);
    int count = 0;
    for (const auto& [path, seal] : sealed.files) {
        if (++count > pathLimit) return;
        const Treatment treatment = sealed.rules.treatment(path);
        if (treatment.isSealed ? treatment.isExcluded : treatment.isNested) std::abort();
        isSealed(sealed.rules, path);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        askRules(SealedResources::parse({reinterpret_cast<const char*>(data), size}, "list"));
    } catch (const corvane::FormatError&) {
    } catch (const corvane::PropertyList::Error&) {
    }
    return 0;
}
