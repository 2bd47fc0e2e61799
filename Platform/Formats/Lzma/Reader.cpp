#include "Platform/Formats/Lzma/Reader.hpp"

#include <lzma.h>

#include <new>

namespace corvane::Lzma {
namespace {

/// Enough for the largest dictionary that the usual encoders choose, 64 MiB.
constexpr std::uint64_t memoryLimit = std::uint64_t{80} << 20;

std::string_view formatName(Container container) { return container == Container::xz ? "xz" : "lzma"; }

} // namespace

struct Reader::State {
    explicit State(Container container) {
        const lzma_ret status = container == Container::xz ? lzma_stream_decoder(&stream, memoryLimit, 0)
                                                           : lzma_auto_decoder(&stream, memoryLimit, 0);
        if (status != LZMA_OK) throw std::bad_alloc();
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State() { lzma_end(&stream); }
    lzma_stream stream = LZMA_STREAM_INIT;
};

Reader::Reader(ByteSource& compressed, Container container)
    : DecodingSource(compressed, formatName(container)), state_(std::make_unique<State>(container)) {}

Reader::~Reader() = default;

bool Reader::decode(std::string_view& input, std::span<char>& output) {
    lzma_stream& stream = state_->stream;
    stream.next_in = reinterpret_cast<const std::uint8_t*>(input.data());
    stream.avail_in = input.size();
    stream.next_out = reinterpret_cast<std::uint8_t*>(output.data());
    stream.avail_out = output.size();
    const lzma_ret status = lzma_code(&stream, LZMA_RUN);
    input.remove_prefix(input.size() - stream.avail_in);
    output = output.last(stream.avail_out);
    if (status == LZMA_MEM_ERROR) throw std::bad_alloc();
    if (status == LZMA_MEMLIMIT_ERROR) fail("expected a dictionary of at most 64 MiB, found a larger one");
    if (status != LZMA_OK && status != LZMA_STREAM_END && status != LZMA_BUF_ERROR) {
        fail("expected LZMA data, found something else");
    }
    return status == LZMA_STREAM_END;
}

} // namespace corvane::Lzma
