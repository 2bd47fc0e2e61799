#include "Platform/Formats/Bzip2/Reader.hpp"

#include <bzlib.h>

#include <algorithm>
#include <new>

namespace corvane::Bzip2 {
namespace {

/// libbz2 counts in 32 bits.
unsigned bounded(std::size_t size) { return static_cast<unsigned>(std::min<std::size_t>(size, 1U << 30)); }

} // namespace

struct Reader::State {
    State() {
        if (BZ2_bzDecompressInit(&stream, 0, 0) != BZ_OK) throw std::bad_alloc();
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State() { BZ2_bzDecompressEnd(&stream); }
    bz_stream stream{};
};

Reader::Reader(ByteSource& compressed) : DecodingSource(compressed, "bzip2"), state_(std::make_unique<State>()) {}

Reader::~Reader() = default;

bool Reader::decode(std::string_view& input, std::span<char>& output) {
    bz_stream& stream = state_->stream;
    stream.next_in = const_cast<char*>(input.data());
    stream.avail_in = bounded(input.size());
    stream.next_out = output.data();
    stream.avail_out = bounded(output.size());
    const int status = BZ2_bzDecompress(&stream);
    input.remove_prefix(bounded(input.size()) - stream.avail_in);
    output = output.subspan(bounded(output.size()) - stream.avail_out);
    if (status == BZ_MEM_ERROR) throw std::bad_alloc();
    if (status != BZ_OK && status != BZ_STREAM_END) fail("expected bzip2 data, found something else");
    return status == BZ_STREAM_END;
}

} // namespace corvane::Bzip2
