// Reads bytes as an archive twice, once with the data and once skipping them: both must see the same entries. What the
// octal form can hold is written again and must read the same.

#include "Platform/Formats/Cpio/Reader.hpp"
#include "Platform/Formats/Cpio/Writer.hpp"
#include "Platform/Formats/FormatError.hpp"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

using namespace corvane;

namespace {

struct Item {
    Cpio::Entry entry;
    std::string data;
};

struct Listing {
    std::vector<Item> items;
    bool complete = false;
};

Listing list(std::string_view bytes, bool readData) {
    Listing listing;
    MemorySource source(bytes);
    Cpio::Reader reader(source);
    try {
        while (auto entry = reader.next()) {
            listing.items.push_back({*std::move(entry), ""});
            if (readData) listing.items.back().data = readAll(reader, bytes.size(), "cpio");
        }
        listing.complete = true;
    } catch (const FormatError&) {
    }
    return listing;
}

void requireEqual(const Listing& left, const Listing& right) {
    if (left.complete != right.complete || left.items.size() != right.items.size()) std::abort();
    for (std::size_t index = 0; index < left.items.size(); ++index) {
        const Cpio::Entry& a = left.items[index].entry;
        const Cpio::Entry& b = right.items[index].entry;
        if (a.path != b.path || a.mode != b.mode || a.size != b.size || a.linkTarget != b.linkTarget) std::abort();
    }
}

void writeAgain(const Listing& listing) {
    std::string bytes;
    try {
        Cpio::Writer writer([&](std::string_view piece) { bytes += piece; });
        for (const Item& item : listing.items) {
            MemorySource data(item.data);
            writer.add(item.entry, item.entry.isSymbolicLink() ? nullptr : &data);
        }
        writer.finish();
    } catch (const FormatError&) {
        return; // a number of the hexadecimal form does not fit the octal one
    }
    requireEqual(listing, list(bytes, false));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const Listing read = list(bytes, true);
    const Listing skipped = list(bytes, false);
    requireEqual(read, skipped);
    if (read.complete) writeAgain(read);
    return 0;
}
