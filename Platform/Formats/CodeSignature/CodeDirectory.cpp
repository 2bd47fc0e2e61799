#include "Platform/Formats/CodeSignature/CodeDirectory.hpp"

#include "Platform/Formats/CodeSignature/Blob.hpp"

#include <algorithm>
#include <array>

namespace corvane::CodeSignature {
namespace {

constexpr std::uint32_t directoryMagic = 0xFADE0C02;
constexpr std::uint32_t firstVersion = 0x20001;
constexpr std::uint32_t lastVersion = 0x2F000;

/// The versions that brought further fields.
constexpr std::uint32_t withScatter = 0x20100;
constexpr std::uint32_t withTeam = 0x20200;
constexpr std::uint32_t withWideLimit = 0x20300;
constexpr std::uint32_t withExecutableSegment = 0x20400;
constexpr std::uint32_t withRuntime = 0x20500;

/// Largest exponent of a page's size: 16 MiB. Signing tools use 12 and 14.
constexpr int pageExponentLimit = 24;

struct Hash {
    CodeDirectory::HashType type;
    DigestKind kind;
    std::size_t size;
};

/// Weaker ones first.
constexpr std::array<Hash, 4> hashes{{{CodeDirectory::HashType::sha1, DigestKind::sha1, 20},
                                      {CodeDirectory::HashType::sha256Truncated, DigestKind::sha256, 20},
                                      {CodeDirectory::HashType::sha256, DigestKind::sha256, 32},
                                      {CodeDirectory::HashType::sha384, DigestKind::sha384, 48}}};

/// Null for a number that stands for no digest.
const Hash* findHash(std::uint8_t type) {
    const auto* found = std::find_if(hashes.begin(), hashes.end(),
                                     [&](const Hash& each) { return static_cast<std::uint8_t>(each.type) == type; });
    return found == hashes.end() ? nullptr : found;
}

/// A greater number for a stronger digest.
auto strength(const CodeDirectory& directory) { return findHash(static_cast<std::uint8_t>(directory.hashType())); }

[[noreturn]] void fail(const std::string& problem) {
    throw FormatError(std::string(blobFormat) + ": directory: " + problem);
}

[[noreturn]] void failUnsupported(const std::string& problem) {
    throw UnsupportedVersion(std::string(blobFormat) + ": directory: " + problem + " is not supported");
}

/// Text up to a zero byte.
std::string textAt(std::string_view blob, std::uint32_t offset) {
    const std::size_t end = blob.find('\0', offset);
    if (offset < Blob::headerSize || end == std::string_view::npos) fail("a text does not end within it");
    return std::string(blob.substr(offset, end - offset));
}

std::uint64_t pageCount(std::uint64_t limit, std::uint64_t pageSize) {
    if (pageSize == 0) return limit == 0 ? 0 : 1;
    return limit / pageSize + (limit % pageSize == 0 ? 0 : 1);
}

} // namespace

CodeDirectory CodeDirectory::parse(std::string bytes) {
    CodeDirectory directory;
    const Blob blob = Blob::first(bytes);
    if (blob.magic != directoryMagic) fail("expected its magic, found another");
    if (blob.bytes.size() != bytes.size()) fail("expected its end, found more bytes");
    directory.readFields(blob.bytes);
    directory.checkSizes(bytes.size());
    directory.fullHash_ = digest(directory.digestKind(), bytes);
    directory.blob_ = std::move(bytes);
    return directory;
}

void CodeDirectory::readFields(std::string_view blob) {
    ByteCursor fields(blob, blobFormat);
    fields.skip(Blob::headerSize);
    version_ = fields.u32BigEndian();
    if (version_ < firstVersion || version_ > lastVersion) failUnsupported("version " + std::to_string(version_));
    flags_ = fields.u32BigEndian();
    hashOffset_ = fields.u32BigEndian();
    identifier_ = textAt(blob, fields.u32BigEndian());
    specialSlotCount_ = fields.u32BigEndian();
    codeSlotCount_ = fields.u32BigEndian();
    codeLimit_ = fields.u32BigEndian();
    hashSize_ = fields.u8();
    readHashType(fields.u8());
    platform_ = fields.u8();
    readPageSize(fields.u8());
    fields.skip(4); // unused
    readNewerFields(fields, blob);
}

void CodeDirectory::readHashType(std::uint8_t number) {
    const Hash* hash = findHash(number);
    if (hash == nullptr) failUnsupported("digest " + std::to_string(number));
    if (hashSize_ != hash->size) fail("the size of a digest is not that of its kind");
    hashType_ = hash->type;
}

void CodeDirectory::readPageSize(std::uint8_t exponent) {
    if (exponent > pageExponentLimit) fail("the pages are too large");
    pageSize_ = exponent == 0 ? 0 : std::uint64_t{1} << exponent;
}

void CodeDirectory::readNewerFields(ByteCursor& fields, std::string_view blob) {
    if (version_ >= withScatter && fields.u32BigEndian() != 0) failUnsupported("scattered code");
    if (version_ >= withTeam) {
        if (const std::uint32_t offset = fields.u32BigEndian()) teamIdentifier_ = textAt(blob, offset);
    }
    if (version_ >= withWideLimit) {
        fields.skip(4); // unused
        if (const std::uint64_t limit = fields.u64BigEndian()) codeLimit_ = limit;
    }
    if (version_ >= withExecutableSegment) fields.skip(24);
    if (version_ >= withRuntime) {
        runtimeVersion_ = fields.u32BigEndian();
        fields.skip(4); // digests of what is encrypted later
    }
    if (hashOffset_ < fields.offset() + std::uint64_t{specialSlotCount_} * hashSize_) {
        fail("the digests begin before its fields end");
    }
}

void CodeDirectory::checkSizes(std::size_t size) const {
    if (hashOffset_ > size || codeSlotCount_ > (size - hashOffset_) / hashSize_) fail("the digests pass its end");
    if (codeSlotCount_ != pageCount(codeLimit_, pageSize_)) {
        fail("expected " + std::to_string(pageCount(codeLimit_, pageSize_)) + " digests of pages, found " +
             std::to_string(codeSlotCount_));
    }
}

std::optional<std::string> CodeDirectory::runtimeVersion() const {
    if (runtimeVersion_ == 0) return std::nullopt;
    return std::to_string(runtimeVersion_ >> 16) + '.' + std::to_string(runtimeVersion_ >> 8 & 0xFF) + '.' +
           std::to_string(runtimeVersion_ & 0xFF);
}

DigestKind CodeDirectory::digestKind() const { return strength(*this)->kind; }

std::string_view CodeDirectory::codeSlot(std::uint32_t index) const {
    return std::string_view(blob_).substr(hashOffset_ + index * hashSize_, hashSize_);
}

std::optional<std::string_view> CodeDirectory::specialSlot(Slot slot) const {
    const auto number = static_cast<std::uint32_t>(slot);
    if (number == 0 || number > specialSlotCount_) return std::nullopt;
    const std::string_view stored = std::string_view(blob_).substr(hashOffset_ - number * hashSize_, hashSize_);
    if (stored.find_first_not_of('\0') == std::string_view::npos) return std::nullopt;
    return stored;
}

bool CodeDirectory::matches(Slot slot, std::string_view component) const {
    return specialSlot(slot) == digest(digestKind(), component).substr(0, hashSize_);
}

const CodeDirectory& CodeDirectories::best() const {
    return *std::max_element(all.begin(), all.end(), [](const CodeDirectory& left, const CodeDirectory& right) {
        return strength(left) < strength(right);
    });
}

std::vector<std::string> CodeDirectories::cdhashes() const {
    std::vector<const CodeDirectory*> sorted;
    for (const CodeDirectory& each : all) sorted.push_back(&each);
    std::sort(sorted.begin(), sorted.end(),
              [](const CodeDirectory* left, const CodeDirectory* right) { return strength(*left) < strength(*right); });
    std::vector<std::string> found;
    for (const CodeDirectory* each : sorted) found.push_back(each->cdhash());
    return found;
}

CodeDirectories CodeDirectories::of(const Components& components) {
    CodeDirectories directories;
    const auto take = [&](Slot slot) {
        const std::string* blob = components.find(slot);
        if (blob == nullptr) return;
        CodeDirectory directory = CodeDirectory::parse(*blob);
        for (const CodeDirectory& other : directories.all) {
            if (other.hashType() == directory.hashType()) fail("expected each kind of digest once, found one twice");
        }
        directories.all.push_back(std::move(directory));
    };
    if (!components.isSigned()) fail("expected one, found none");
    take(Slot::codeDirectory);
    for (std::uint32_t index = 0; index < alternateCodeDirectoryLimit; ++index) {
        take(static_cast<Slot>(static_cast<std::uint32_t>(Slot::alternateCodeDirectories) + index));
    }
    return directories;
}

} // namespace corvane::CodeSignature
