// Reads bytes as a Bom. What can be read whole and written again must read the same.

#include "Platform/Formats/Bom/Reader.hpp"
#include "Platform/Formats/Bom/Writer.hpp"
#include "Platform/Formats/FormatError.hpp"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

using namespace corvane;

namespace {

/// The root first, then by path.
std::vector<Bom::Entry> list(std::string_view bytes) {
    std::vector<Bom::Entry> entries;
    Bom::Reader reader(bytes);
    while (auto entry = reader.next()) entries.push_back(*std::move(entry));
    std::sort(entries.begin(), entries.end(), [](const Bom::Entry& left, const Bom::Entry& right) {
        const bool leftIsRoot = left.path == ".";
        const bool rightIsRoot = right.path == ".";
        return leftIsRoot != rightIsRoot ? leftIsRoot : left.path < right.path;
    });
    return entries;
}

/// Nothing when the entries form no tree.
std::string written(const std::vector<Bom::Entry>& entries) {
    std::string bytes;
    try {
        Bom::Writer writer;
        for (const Bom::Entry& entry : entries) writer.add(entry);
        writer.finish([&](std::string_view piece) { bytes += piece; });
    } catch (const FormatError&) {
    }
    return bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<Bom::Entry> entries;
    try {
        entries = list({reinterpret_cast<const char*>(data), size});
    } catch (const FormatError&) {
        return 0;
    }
    const std::string bytes = written(entries);
    if (!bytes.empty() && list(bytes) != entries) std::abort();
    return 0;
}
