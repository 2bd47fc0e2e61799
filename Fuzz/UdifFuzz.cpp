// Opens bytes as a disk image, checks it, and reads its partition map, its licence and both ends. What is read twice
// must be the same. The password of encrypted seeds is "password".

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/PartitionMap/PartitionMap.hpp"
#include "Platform/Formats/Udif/EncryptedAccess.hpp"
#include "Platform/Formats/Udif/Image.hpp"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

using namespace corvane;

namespace {

class BytesAccess : public RandomAccess {
  public:
    explicit BytesAccess(std::string_view bytes) : bytes_(bytes) {}
    std::uint64_t size() const override { return bytes_.size(); }
    void read(std::uint64_t offset, std::span<char> buffer) const override {
        if (offset > size() || buffer.size() > size() - offset) throw FormatError("past the end");
        std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(offset), buffer.size(), buffer.begin());
    }

  private:
    std::string_view bytes_;
};

void readEnds(const RandomAccess& disk) {
    const std::uint64_t count = std::min<std::uint64_t>(disk.size(), 1 << 16);
    for (const std::uint64_t offset : {std::uint64_t{0}, disk.size() - count}) {
        std::string first(count, '\0');
        std::string second(count, '\1');
        disk.read(offset, first);
        disk.read(offset, second);
        if (first != second) std::abort();
    }
}

void use(const Udif::Image& image) try {
    image.licence();
    image.codeSignature();
    readEnds(image);
    PartitionMap::read(image);
    image.verify();
} catch (const FormatError&) {
}

/// Deriving a key takes as long as an image says; what would take seconds is left out.
bool isQuickToOpen(std::string_view bytes) {
    constexpr std::size_t iterationsAt = 104;
    return bytes.size() < iterationsAt + 4 || bytes.substr(iterationsAt, 2) == std::string_view("\0\0", 2);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) try {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    auto access = std::make_unique<BytesAccess>(bytes);
    if (Udif::isEncrypted(*access) && !isQuickToOpen(bytes)) return 0;
    use(*Udif::Image::open(std::move(access), "password"));
    return 0;
} catch (const FormatError&) {
    return 0;
}
