// Reads bytes as an APFS container: its volume, and of every item the data and the attributes. An input is a list of
// pieces of a disk that is zeros elsewhere, and the checksums of its objects are put right, so that changes reach the
// trees. A piece: offset (4 bytes, little-endian), size (2) and bytes.

#include "Platform/Formats/Apfs/Volume.hpp"
#include "Platform/Formats/FormatError.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>

using namespace corvane;

namespace {

constexpr std::size_t blockSize = 4096;
constexpr std::size_t diskSize = 128 * blockSize;
constexpr std::uint64_t readLimit = std::uint64_t{1} << 20;

class FuzzDisk : public RandomAccess {
  public:
    explicit FuzzDisk(std::string bytes) : bytes_(std::move(bytes)) {}
    std::uint64_t size() const override { return bytes_.size(); }
    void read(std::uint64_t offset, std::span<char> buffer) const override {
        if (offset > bytes_.size() || buffer.size() > bytes_.size() - offset) throw FormatError("past the end");
        std::copy_n(bytes_.data() + offset, buffer.size(), buffer.data());
    }

  private:
    std::string bytes_;
};

std::string diskOf(std::string_view input) {
    std::string disk(diskSize, '\0');
    ByteCursor cursor(input, "input");
    while (cursor.remaining() >= 6) {
        const std::size_t offset = cursor.u32LittleEndian() % diskSize;
        const std::size_t size = cursor.u16LittleEndian();
        const std::string_view bytes = cursor.bytes(std::min(size, cursor.remaining()));
        disk.replace(offset, std::min(bytes.size(), diskSize - offset), bytes.substr(0, diskSize - offset));
    }
    return disk;
}

void seal(std::string& disk) {
    for (std::size_t block = 0; block < diskSize; block += blockSize) {
        const bool hasType = disk[block + 24] != 0;
        if (!hasType) continue;
        std::uint64_t sum = Apfs::checksum(std::string_view(disk).substr(block, blockSize));
        for (std::size_t index = 0; index < 8; ++index, sum >>= 8) disk[block + index] = static_cast<char>(sum);
    }
}

void readItem(const Volume& volume, const VolumeEntry& entry) {
    try {
        volume.attributes(entry);
        if (!S_ISREG(entry.mode)) return;
        const auto source = volume.open(entry);
        std::array<char, blockSize> buffer{};
        for (std::uint64_t left = readLimit; left > 0; left -= std::min<std::uint64_t>(left, blockSize)) {
            if (source->read(buffer) == 0) return;
        }
    } catch (const FormatError&) {
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string bytes = diskOf({reinterpret_cast<const char*>(data), size});
    seal(bytes);
    const FuzzDisk disk(std::move(bytes));
    try {
        const Apfs::Volume volume(disk);
        for (const VolumeEntry& entry : volume.entries()) readItem(volume, entry);
    } catch (const FormatError&) {
    }
    return 0;
}
