#include "Platform/Formats/DecodingSource.hpp"

#include "Platform/Formats/FormatError.hpp"

namespace corvane {

DecodingSource::DecodingSource(ByteSource& encoded, std::string_view format)
    : encoded_(encoded), format_(format), buffer_(sourceBufferSize) {}

void DecodingSource::fail(std::string_view problem) const { throw FormatError(format_, consumed_, problem); }

void DecodingSource::refill() {
    const std::size_t count = encoded_.read(buffer_);
    input_ = {buffer_.data(), count};
    drained_ = count == 0;
}

void DecodingSource::requireEnd() {
    if (input_.empty() && !drained_) refill();
    if (!input_.empty()) fail("expected the end of the data, found more bytes");
}

std::size_t DecodingSource::read(std::span<char> buffer) {
    std::span<char> output = buffer;
    while (!ended_ && output.size() == buffer.size()) {
        if (input_.empty() && !drained_) refill();
        const std::size_t before = input_.size();
        ended_ = decode(input_, output);
        consumed_ += before - input_.size();
        if (ended_) requireEnd();
        const bool idle = input_.size() == before && output.size() == buffer.size();
        if (!ended_ && idle) fail("expected more compressed bytes, found the end of the data");
    }
    return buffer.size() - output.size();
}

} // namespace corvane
