#include "Platform/Formats/Xar/DataReader.hpp"

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Xar/Decoders.hpp"

#include <algorithm>
#include <optional>

namespace corvane::Xar {
namespace {

/// Passes bytes on, counts them and computes a digest; what it finds is compared when the inner source ends.
class VerifyingSource : public ByteSource {
  public:
    VerifyingSource(ByteSource& inner, std::string_view what, std::uint64_t size,
                    const std::optional<Checksum>& checksum)
        : inner_(inner), what_(what), left_(size), checksum_(checksum) {
        if (checksum_) hasher_.emplace(checksum_->kind);
    }

    std::size_t read(std::span<char> buffer) override {
        const std::size_t count = inner_.read(buffer);
        if (count == 0) {
            finish();
            return 0;
        }
        if (count > left_) fail("expected the end after the size in the table of contents, found more bytes");
        left_ -= count;
        if (hasher_) hasher_->update({buffer.data(), count});
        return count;
    }

  private:
    void finish() {
        if (left_ != 0) fail("expected " + std::to_string(left_) + " more bytes, found the end");
        if (!hasher_) return;
        const std::string found = hasher_->finish();
        hasher_.reset();
        if (found != checksum_->value) {
            fail("expected the checksum " + hexadecimal(checksum_->value) + ", found " + hexadecimal(found));
        }
    }

    [[noreturn]] void fail(const std::string& problem) const {
        throw FormatError("xar: " + std::string(what_) + ": " + problem);
    }

    ByteSource& inner_;
    std::string_view what_;
    std::uint64_t left_;
    std::optional<Checksum> checksum_;
    std::optional<Hasher> hasher_;
};

constexpr std::string_view storedName = "stored data";
constexpr std::string_view decodedName = "extracted data";

} // namespace

/// Stored bytes are hashed twice only when the archive states two different digests of what are then the same bytes.
DataReader::DataReader(const Archive& archive, const Data& data) {
    const bool isStored = data.encoding == Encoding::stored;
    const auto& archived = isStored && !data.archivedChecksum ? data.extractedChecksum : data.archivedChecksum;
    stored_ = std::make_unique<FileRange>(archive.descriptor(), archive.url(),
                                          archive.heapOffset() + data.stored.offset, data.stored.length);
    verifiedStored_ = std::make_unique<VerifyingSource>(*stored_, storedName, data.stored.length, archived);
    if (isStored && (!data.extractedChecksum || archived == data.extractedChecksum)) return;
    // An empty file may be stored as nothing at all instead of as an empty stream.
    if (!isStored && data.stored.length != 0) decoder_ = makeDecoder(data.encoding, *verifiedStored_);
    ByteSource& decoded = decoder_ ? *decoder_ : *verifiedStored_;
    verifiedDecoded_ = std::make_unique<VerifyingSource>(decoded, decodedName, data.size, data.extractedChecksum);
}

DataReader::~DataReader() = default;

std::size_t DataReader::read(std::span<char> buffer) {
    return verifiedDecoded_ ? verifiedDecoded_->read(buffer) : verifiedStored_->read(buffer);
}

} // namespace corvane::Xar
