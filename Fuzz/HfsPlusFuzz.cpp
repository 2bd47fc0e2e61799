// Reads bytes as a volume: paths must be those of a tree, and files must have the size that is said of them.

#include "Platform/Formats/EntryName.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/HfsPlus/Volume.hpp"
#include "Tests/Platform/Formats/MemoryAccess.hpp"

#include <sys/stat.h>

#include <cstdint>
#include <cstdlib>
#include <set>
#include <vector>

using namespace corvane;

namespace {

/// Small files may say that much data is compressed in them; reading a part shows as much.
constexpr std::uint64_t readLimit = std::uint64_t{1} << 20;

void requireTree(const std::vector<VolumeEntry>& entries) {
    std::set<std::string> folders;
    for (const VolumeEntry& each : entries) {
        const std::size_t slash = each.path.rfind('/');
        if (each.path != ".") EntryName::checkPath(each.path, "entry");
        if (slash != std::string::npos && !folders.contains(each.path.substr(0, slash))) std::abort();
        if (S_ISDIR(each.mode) && !folders.insert(each.path).second) std::abort();
    }
}

void readFile(const HfsPlus::Volume& volume, const VolumeEntry& file) {
    const auto source = volume.open(file);
    std::vector<char> buffer(65536);
    std::uint64_t found = 0;
    while (const std::size_t count = source->read(buffer)) {
        found += count;
        if (found > readLimit) return;
    }
    if (found != file.size) std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const TestSupport::MemoryAccess disk(std::string(reinterpret_cast<const char*>(data), size));
    try {
        const HfsPlus::Volume volume(disk);
        requireTree(volume.entries());
        for (const VolumeEntry& each : volume.entries()) {
            try {
                volume.attributes(each);
                if (S_ISREG(each.mode)) readFile(volume, each);
            } catch (const FormatError&) {
            }
        }
    } catch (const FormatError&) {
    }
    return 0;
}
