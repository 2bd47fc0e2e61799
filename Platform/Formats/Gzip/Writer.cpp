#include "Platform/Formats/Gzip/Writer.hpp"

#include <zlib.h>

#include <new>
#include <utility>
#include <vector>

namespace corvane::Gzip {

struct Writer::State {
    State(Framing chosen, int level) : framing(chosen) {
        const int windowBits = framing == Framing::zlib ? MAX_WBITS : MAX_WBITS + 16;
        if (deflateInit2(&stream, level, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY) != Z_OK) throw std::bad_alloc();
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State() { deflateEnd(&stream); }

    /// zlib tells its fastest and its best level in a gzip header's ninth byte; packages have 0 there at any level.
    void fixHeader(std::size_t size) {
        if (framing == Framing::gzip && size != 0 && !std::exchange(headerWritten, true)) buffer[8] = 0;
    }

    Framing framing;
    z_stream stream{};
    bool headerWritten = false;
    std::vector<char> buffer = std::vector<char>(std::size_t{1} << 16);
};

Writer::Writer(Sink sink, Framing framing, int level)
    : state_(std::make_unique<State>(framing, level)), sink_(std::move(sink)) {}

Writer::~Writer() = default;

void Writer::write(std::string_view bytes) {
    while (!bytes.empty()) {
        const std::string_view piece = bytes.substr(0, std::size_t{1} << 30);
        run(piece, Z_NO_FLUSH);
        bytes.remove_prefix(piece.size());
    }
}

void Writer::finish() { run({}, Z_FINISH); }

void Writer::run(std::string_view bytes, int flush) {
    z_stream& stream = state_->stream;
    std::vector<char>& buffer = state_->buffer;
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream.avail_in = static_cast<uInt>(bytes.size());
    int status = Z_OK;
    do {
        stream.next_out = reinterpret_cast<Bytef*>(buffer.data());
        stream.avail_out = static_cast<uInt>(buffer.size());
        status = deflate(&stream, flush);
        const std::size_t size = buffer.size() - stream.avail_out;
        state_->fixHeader(size);
        sink_({buffer.data(), size});
    } while (stream.avail_out == 0 || (flush == Z_FINISH && status != Z_STREAM_END));
}

std::string compressed(std::string_view bytes, Framing framing, int level) {
    std::string result;
    Writer writer([&](std::string_view piece) { result += piece; }, framing, level);
    writer.write(bytes);
    writer.finish();
    return result;
}

} // namespace corvane::Gzip
