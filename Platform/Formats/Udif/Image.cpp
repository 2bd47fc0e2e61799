#include "Platform/Formats/Udif/Image.hpp"

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Udif/ChunkedDisk.hpp"
#include "Platform/Formats/Udif/EncryptedAccess.hpp"
#include "Platform/Formats/Udif/Licence.hpp"
#include "Platform/Formats/Udif/Resources.hpp"
#include "Platform/Formats/Udif/Trailer.hpp"
#include "Platform/Formats/Udif/Verification.hpp"
#include "Support/PropertyList.hpp"

#include <algorithm>

namespace corvane::Udif {
namespace {

constexpr std::uint64_t signatureLimit = std::uint64_t{16} << 20;

/// Bytes of a file without any tables.
class PlainImage : public Image {
  public:
    PlainImage(std::unique_ptr<RandomAccess> file, bool isEncrypted)
        : file_(std::move(file)), isEncrypted_(isEncrypted) {}

    std::uint64_t size() const override { return file_->size(); }
    void read(std::uint64_t offset, std::span<char> buffer) const override { file_->read(offset, buffer); }
    void verify(const std::stop_token& /*stop*/) const override {} // There is nothing to compare the bytes with.
    std::optional<std::string> licence() const override { return std::nullopt; }
    std::optional<std::string> codeSignature() const override { return std::nullopt; }
    std::string kind() const override { return "read/write"; }
    bool isEncrypted() const override { return isEncrypted_; }

  private:
    std::unique_ptr<RandomAccess> file_;
    bool isEncrypted_;
};

std::vector<BlockTable> parseTables(const Resources& resources) {
    const auto found = resources.find("blkx");
    if (found == resources.end()) throw FormatError("disk image: expected block tables in the property list");
    std::vector<BlockTable> tables;
    for (const Resource& resource : found->second) tables.push_back(BlockTable::parse(resource.data, resource.name));
    return tables;
}

std::vector<Chunk> allChunks(const std::vector<BlockTable>& tables) {
    std::vector<Chunk> chunks;
    for (const BlockTable& table : tables) chunks.insert(chunks.end(), table.chunks.begin(), table.chunks.end());
    return chunks;
}

std::string kindName(const std::vector<Chunk>& chunks) {
    const auto compressed =
        std::find_if(chunks.begin(), chunks.end(), [](auto& chunk) { return chunk.isCompressed(); });
    if (compressed == chunks.end()) return "UDIF read-only";
    switch (compressed->kind) {
    case ChunkKind::adc:
        return "UDIF read-only compressed (ADC)";
    case ChunkKind::bzip2:
        return "UDIF read-only compressed (bzip2)";
    case ChunkKind::lzfse:
        return "UDIF read-only compressed (lzfse)";
    case ChunkKind::xz:
        return "UDIF read-only compressed (lzma)";
    default:
        return "UDIF read-only compressed (zlib)";
    }
}

/// A file with a trailer.
class ChunkedImage : public Image {
  public:
    ChunkedImage(std::unique_ptr<RandomAccess> file, const Trailer& trailer, bool isEncrypted)
        : file_(std::move(file)),
          trailer_(trailer),
          isEncrypted_(isEncrypted),
          resources_(parseResources(readExtent(*file_, trailer.propertyList, PropertyList::sizeLimit))),
          tables_(parseTables(resources_)),
          disk_(*file_, trailer.dataFork.offset, allChunks(tables_)) {
        resources_.erase("blkx");
        if (size() / sectorSize == trailer.sectorCount) return;
        throw FormatError("disk image: expected tables of " + std::to_string(trailer.sectorCount) + " sectors, found " +
                          std::to_string(size() / sectorSize));
    }

    std::uint64_t size() const override { return disk_.size(); }
    void read(std::uint64_t offset, std::span<char> buffer) const override {
        if (offset <= size() && buffer.size() <= size() - offset) return disk_.read(offset, buffer);
        throw FormatError("disk image", offset,
                          "expected " + std::to_string(buffer.size()) + " bytes, found the end at " +
                              std::to_string(size()));
    }
    void verify(const std::stop_token& stop) const override { Udif::verify(*file_, trailer_, tables_, disk_, stop); }
    std::optional<std::string> licence() const override { return licenceText(resources_); }
    std::optional<std::string> codeSignature() const override {
        if (trailer_.codeSignature.length == 0) return std::nullopt;
        return readExtent(*file_, trailer_.codeSignature, signatureLimit);
    }
    std::string kind() const override { return kindName(disk_.chunks()); }
    bool isEncrypted() const override { return isEncrypted_; }

  private:
    std::unique_ptr<RandomAccess> file_;
    Trailer trailer_;
    bool isEncrypted_;
    Resources resources_;
    std::vector<BlockTable> tables_;
    ChunkedDisk disk_;
};

[[noreturn]] void refuse(const std::string& kind) { throw FormatError("disk image: " + kind + " are not supported"); }

std::string bytesAt(const RandomAccess& file, std::uint64_t offset, std::uint64_t count) {
    return file.size() < count ? std::string() : readExtent(file, {offset, count}, count);
}

std::unique_ptr<Image> openPlain(std::unique_ptr<RandomAccess> file, bool isEncrypted) {
    if (bytesAt(*file, 0, 4) == "sprs") refuse("sparse images");
    const std::uint64_t size = file->size();
    if (size >= 8 && bytesAt(*file, size - 8, 8) == "cdsaencr") refuse("images of the first kind of encryption");
    if (size < sectorSize) throw FormatError("disk image: expected at least a sector, found the end of the file");
    return std::make_unique<PlainImage>(std::move(file), isEncrypted);
}

std::unique_ptr<Image> openDecrypted(std::unique_ptr<RandomAccess> file, bool isEncrypted) {
    const std::optional<Trailer> trailer = Trailer::read(*file);
    if (!trailer) return openPlain(std::move(file), isEncrypted);
    if (trailer->segmentCount > 1) refuse("images in several segments");
    if (trailer->propertyList.length == 0) refuse("images whose tables stand in a resource fork");
    return std::make_unique<ChunkedImage>(std::move(file), *trailer, isEncrypted);
}

std::unique_ptr<RandomAccess> access(const FileURL& file) {
    if (std::filesystem::is_directory(file / "bands")) refuse("sparse bundles");
    return std::make_unique<FileAccess>(file);
}

} // namespace

std::unique_ptr<Image> Image::open(std::unique_ptr<RandomAccess> file, std::optional<std::string_view> password) {
    if (!Udif::isEncrypted(*file)) return openDecrypted(std::move(file), false);
    if (!password) throw EncryptedImage();
    return openDecrypted(std::make_unique<EncryptedAccess>(std::move(file), *password), true);
}

std::unique_ptr<Image> Image::open(const FileURL& file) { return open(access(file)); }

std::unique_ptr<Image> Image::open(const FileURL& file, std::string_view password) {
    return open(access(file), password);
}

} // namespace corvane::Udif
