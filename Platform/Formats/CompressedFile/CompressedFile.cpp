#include "Platform/Formats/CompressedFile/CompressedFile.hpp"

#include "Platform/Formats/ByteCursor.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Gzip/Reader.hpp"
#include "Platform/Formats/Lzfse/Lzfse.hpp"

#include <algorithm>
#include <array>
#include <utility>

namespace corvane::CompressedFile {
namespace {

constexpr std::string_view format = "compressed file";
constexpr std::uint64_t pieceSize = 65536;
/// No codec makes a piece twice as large as it was.
constexpr std::uint64_t encodedPieceLimit = 2 * pieceSize;
/// What stands in an attribute is one piece. Systems keep only small files there.
constexpr std::uint64_t inlinePieceLimit = std::uint64_t{16} << 20;

enum class Codec { zlib, lzvn, plain, lzfse };

struct Header {
    std::uint32_t kind = 0;
    std::uint64_t plainSize = 0;
    Codec codec = Codec::plain;
    bool isInResourceFork = false;
};

Header readHeader(std::string_view attribute) {
    ByteCursor cursor(attribute, format);
    cursor.expect("fpmc");
    Header header;
    header.kind = cursor.u32LittleEndian();
    header.plainSize = cursor.u64LittleEndian();
    return header;
}

void chooseCodec(Header& header) {
    constexpr std::array codecs{Codec::zlib, Codec::lzvn, Codec::plain, Codec::lzfse};
    constexpr std::array<std::uint32_t, 4> inlineKinds{3, 7, 9, 11};
    for (std::size_t index = 0; index < codecs.size(); ++index) {
        header.isInResourceFork = header.kind == inlineKinds[index] + 1;
        header.codec = codecs[index];
        if (header.isInResourceFork || header.kind == inlineKinds[index]) return;
    }
    throw FormatError(format, 4, "compression of kind " + std::to_string(header.kind) + " is not supported");
}

Header readSupportedHeader(std::string_view attribute) {
    Header header = readHeader(attribute);
    chooseCodec(header);
    return header;
}

std::string inflated(std::string_view piece, std::size_t size) {
    MemorySource source(piece);
    Gzip::Reader reader(source, Gzip::Framing::zlib);
    return readAll(reader, size, format);
}

/// Pieces that do not become smaller are stored behind a byte that no stream of the codec begins with.
bool isStored(Codec codec, std::string_view piece, std::size_t size) {
    if (codec == Codec::plain) return piece.size() == size + 1;
    const int first = piece.empty() ? -1 : static_cast<unsigned char>(piece.front());
    return (codec == Codec::zlib && (first & 0x0F) == 0x0F) || (codec == Codec::lzvn && first == 0x06);
}

std::string decoded(Codec codec, std::string_view piece, std::size_t size) {
    if (isStored(codec, piece, size)) return std::string(piece.substr(1));
    switch (codec) {
    case Codec::zlib:
        return inflated(piece, size);
    case Codec::lzvn:
        return Lzfse::decodeLzvn(piece, size);
    case Codec::lzfse:
        return Lzfse::decode(piece, size);
    case Codec::plain:
        break;
    }
    return std::string(piece);
}

/// Where a piece stands in the resource fork.
struct Place {
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
};

/// The bytes of pieces by their number. Tables are read an entry at a time: their size is what the file claims.
class Pieces {
  public:
    Pieces(Header header, std::string attribute, std::unique_ptr<RandomAccess> fork)
        : header_(header), attribute_(std::move(attribute)), fork_(std::move(fork)) {
        header_.isInResourceFork ? requireFork() : requireSmall();
        if (count_ != 0) header_.codec == Codec::zlib ? findResource() : requireOffsets();
    }

    std::uint64_t plainSize() const { return header_.plainSize; }

    /// The plain bytes that begin at an offset.
    std::string plain(std::uint64_t offset) const {
        const std::uint64_t limit = header_.isInResourceFork ? pieceSize : inlinePieceLimit;
        const auto size = static_cast<std::size_t>(std::min(limit, header_.plainSize - offset));
        const std::string piece = header_.isInResourceFork ? stored(offset / pieceSize) : attribute_.substr(headerSize);
        std::string bytes = decoded(header_.codec, piece, size);
        if (bytes.size() == size) return bytes;
        throw FormatError(format, offset,
                          "expected a piece of " + std::to_string(size) + " bytes, found " +
                              std::to_string(bytes.size()));
    }

  private:
    void requireFork() {
        if (!fork_) throw FormatError("compressed file: expected a resource fork, found none");
        count_ = header_.plainSize / pieceSize + (header_.plainSize % pieceSize == 0 ? 0 : 1);
    }

    void requireSmall() const {
        if (header_.plainSize <= inlinePieceLimit) return;
        throw FormatError(format, 8,
                          "expected at most " + std::to_string(inlinePieceLimit) + " bytes in an attribute, found " +
                              std::to_string(header_.plainSize));
    }

    std::string bytes(std::uint64_t offset, std::size_t size) const {
        std::string result(size, '\0');
        fork_->read(offset, result);
        return result;
    }

    std::uint32_t number(std::uint64_t offset) const {
        return ByteCursor(bytes(offset, 4), format, offset).u32LittleEndian();
    }

    /// The one resource of the fork: its length, the number of pieces, and their places counted from that number.
    void findResource() {
        base_ = std::uint64_t{ByteCursor(bytes(0, 4), format).u32BigEndian()} + 4;
        requireCount(number(base_), base_);
    }

    /// Offsets of the pieces and of the end of the last one. More zeros may follow.
    void requireOffsets() const { requireCount(number(0) / 4, 0, 1); }

    void requireCount(std::uint64_t found, std::uint64_t offset, std::uint64_t spare = 0) const {
        const bool isEnough = spare == 0 ? found == count_ : found >= count_ + spare;
        if (isEnough) return;
        throw FormatError(format, offset,
                          "expected a table of " + std::to_string(count_ + spare) + " entries, found " +
                              std::to_string(found));
    }

    Place place(std::uint64_t index) const {
        if (header_.codec == Codec::zlib) {
            const std::uint64_t entry = base_ + 4 + index * 8;
            return {base_ + number(entry), number(entry + 4)};
        }
        const std::uint64_t start = number(index * 4);
        const std::uint64_t end = number(index * 4 + 4);
        if (start > end) throw FormatError(format, index * 4, "expected offsets that rise, found the reverse");
        return {start, end - start};
    }

    std::string stored(std::uint64_t index) const {
        const auto [offset, size] = place(index);
        if (size > encodedPieceLimit) {
            throw FormatError(format, offset,
                              "expected a piece of at most " + std::to_string(encodedPieceLimit) + " bytes, found " +
                                  std::to_string(size));
        }
        return bytes(offset, static_cast<std::size_t>(size));
    }

    Header header_;
    std::string attribute_;
    std::unique_ptr<RandomAccess> fork_;
    /// Pieces in the resource fork.
    std::uint64_t count_ = 0;
    /// From where the places of a zlib file are counted.
    std::uint64_t base_ = 0;
};

class Source : public ByteSource {
  public:
    explicit Source(Pieces pieces) : pieces_(std::move(pieces)) {}

    std::size_t read(std::span<char> buffer) override {
        if (position_ == piece_.size()) refill();
        const std::size_t count = piece_.copy(buffer.data(), buffer.size(), position_);
        position_ += count;
        return count;
    }

  private:
    void refill() {
        piece_.clear();
        position_ = 0;
        if (next_ < pieces_.plainSize()) piece_ = pieces_.plain(next_);
        next_ += piece_.size();
    }

    Pieces pieces_;
    std::string piece_;
    std::size_t position_ = 0;
    /// Offset of the next piece in the plain data.
    std::uint64_t next_ = 0;
};

} // namespace

std::uint64_t plainSize(std::string_view attribute) { return readHeader(attribute).plainSize; }

bool needsResourceFork(std::string_view attribute) { return readSupportedHeader(attribute).isInResourceFork; }

std::unique_ptr<ByteSource> open(std::string attribute, std::unique_ptr<RandomAccess> resourceFork) {
    const Header header = readSupportedHeader(attribute);
    return std::make_unique<Source>(Pieces(header, std::move(attribute), std::move(resourceFork)));
}

} // namespace corvane::CompressedFile
