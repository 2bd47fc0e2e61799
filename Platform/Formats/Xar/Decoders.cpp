#include "Platform/Formats/Xar/Decoders.hpp"

#include "Platform/Formats/DecodingSource.hpp"
#include "Platform/Formats/Gzip/Reader.hpp"
#include "Platform/Formats/Lzma/Reader.hpp"

#include <bzlib.h>

#include <algorithm>
#include <new>
#include <stdexcept>

namespace corvane::Xar {
namespace {

/// libbz2 counts in 32 bits.
unsigned bounded(std::size_t size) { return static_cast<unsigned>(std::min<std::size_t>(size, 1U << 30)); }

class Bzip2Decoder : public DecodingSource {
  public:
    explicit Bzip2Decoder(ByteSource& encoded) : DecodingSource(encoded, "bzip2") {
        if (BZ2_bzDecompressInit(&stream_, 0, 0) != BZ_OK) throw std::bad_alloc();
    }
    Bzip2Decoder(const Bzip2Decoder&) = delete;
    Bzip2Decoder& operator=(const Bzip2Decoder&) = delete;
    ~Bzip2Decoder() override { BZ2_bzDecompressEnd(&stream_); }

  protected:
    bool decode(std::string_view& input, std::span<char>& output) override {
        stream_.next_in = const_cast<char*>(input.data());
        stream_.avail_in = bounded(input.size());
        stream_.next_out = output.data();
        stream_.avail_out = bounded(output.size());
        const int status = BZ2_bzDecompress(&stream_);
        input.remove_prefix(bounded(input.size()) - stream_.avail_in);
        output = output.subspan(bounded(output.size()) - stream_.avail_out);
        if (status == BZ_MEM_ERROR) throw std::bad_alloc();
        if (status != BZ_OK && status != BZ_STREAM_END) fail("expected bzip2 data, found something else");
        return status == BZ_STREAM_END;
    }

  private:
    bz_stream stream_{};
};

} // namespace

std::unique_ptr<ByteSource> makeDecoder(Encoding encoding, ByteSource& encoded) {
    switch (encoding) {
    case Encoding::zlib:
        return std::make_unique<Gzip::Reader>(encoded, Gzip::Framing::either);
    case Encoding::bzip2:
        return std::make_unique<Bzip2Decoder>(encoded);
    case Encoding::lzma:
    case Encoding::xz:
        return std::make_unique<Lzma::Reader>(encoded, Lzma::Container::either);
    case Encoding::stored:
        break;
    }
    throw std::logic_error("stored data need no decoder");
}

} // namespace corvane::Xar
