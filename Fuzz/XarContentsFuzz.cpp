// Reads bytes as the XML of a table of contents: the compression round it keeps a fuzzer from getting there.

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Xar/TableOfContents.hpp"

#include <cstdint>
#include <cstdlib>

using namespace corvane;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::uint64_t heapSize = 10000;
    try {
        const auto document = XML::Document::parse({reinterpret_cast<const char*>(data), size}, "toc");
        const auto contents = Xar::TableOfContents::parse(document, heapSize);
        if (contents.reservedSize() > contents.describedSize() || contents.describedSize() > heapSize) std::abort();
        contents.visit([&](const std::string& path, const Xar::Entry& entry) {
            if (contents.find(path) != &entry) std::abort();
        });
    } catch (const FormatError&) {
    } catch (const XML::Error&) {
    }
    return 0;
}
