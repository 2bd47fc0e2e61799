#include "Platform/Formats/Gzip/Reader.hpp"

#include <zlib.h>

#include <algorithm>
#include <new>

namespace corvane::Gzip {

struct Reader::State {
    explicit State(int windowBits) {
        if (inflateInit2(&stream, windowBits) != Z_OK) throw std::bad_alloc();
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State() { inflateEnd(&stream); }
    z_stream stream{};
};

namespace {

/// zlib takes the framing as an addition to the size of the window.
int windowBits(Framing framing) {
    switch (framing) {
    case Framing::gzip:
        return MAX_WBITS + 16;
    case Framing::zlib:
        return MAX_WBITS;
    case Framing::either:
        break;
    }
    return MAX_WBITS + 32;
}

/// zlib counts in 32 bits.
uInt bounded(std::size_t size) { return static_cast<uInt>(std::min<std::size_t>(size, 1U << 30)); }

std::string_view formatName(Framing framing) { return framing == Framing::gzip ? "gzip" : "zlib"; }

} // namespace

Reader::Reader(ByteSource& compressed, Framing framing)
    : DecodingSource(compressed, formatName(framing)), state_(std::make_unique<State>(windowBits(framing))) {}

Reader::~Reader() = default;

bool Reader::decode(std::string_view& input, std::span<char>& output) {
    z_stream& stream = state_->stream;
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(input.data()));
    stream.avail_in = bounded(input.size());
    stream.next_out = reinterpret_cast<Bytef*>(output.data());
    stream.avail_out = bounded(output.size());
    const int status = inflate(&stream, Z_NO_FLUSH);
    input.remove_prefix(bounded(input.size()) - stream.avail_in);
    output = output.subspan(bounded(output.size()) - stream.avail_out);
    if (status == Z_MEM_ERROR) throw std::bad_alloc();
    if (status != Z_OK && status != Z_STREAM_END && status != Z_BUF_ERROR) {
        fail(stream.msg != nullptr ? stream.msg : "expected deflated data, found something else");
    }
    return status == Z_STREAM_END;
}

} // namespace corvane::Gzip
