// Reads bytes as an archive, and every entry of it.

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Xar/DataReader.hpp"
#include "Support/UniqueDescriptor.hpp"
#include "Support/WriteAll.hpp"
#include "Support/XML.hpp"

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

using namespace corvane;

namespace {

void drain(ByteSource& source, std::uint64_t size) {
    std::vector<char> buffer(4096);
    while (const std::size_t count = source.read(buffer)) {
        if (count > size) std::abort();
        size -= count;
    }
    if (size != 0) std::abort();
}

void readEntries(const Xar::Archive& archive) {
    archive.contents().visit([&](const std::string& path, const Xar::Entry& entry) {
        if (archive.contents().find(path) != &entry) std::abort();
        if (!entry.data || entry.data->size > (1U << 24)) return;
        // Damage to one entry must not hide the others from the driver.
        try {
            Xar::DataReader reader(archive, *entry.data);
            drain(reader, entry.data->size);
        } catch (const FormatError&) {
        }
    });
    if (archive.trailerOffset() > archive.fileSize()) std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const UniqueDescriptor file(::memfd_create("archive", MFD_CLOEXEC));
    if (!writeAll(file.get(), {reinterpret_cast<const char*>(data), size})) std::abort();
    try {
        const auto archive = Xar::Archive::openUnverified("/proc/self/fd/" + std::to_string(file.get()));
        readEntries(archive);
        archive.verifyChecksum();
    } catch (const FormatError&) {
    } catch (const XML::Error&) {
    }
    return 0;
}
