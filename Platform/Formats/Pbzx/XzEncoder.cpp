#include "Platform/Formats/Pbzx/XzEncoder.hpp"

#include "Support/CancellationError.hpp"

#include <lzma.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <new>
#include <stdexcept>

namespace corvane::Pbzx {
namespace {

/// Bytes compressed between two looks at the stop token; a few hundredths of a second.
constexpr std::size_t stepSize = std::size_t{1} << 17;

void require(lzma_ret status) {
    if (status == LZMA_MEM_ERROR) throw std::bad_alloc();
    if (status != LZMA_OK) throw std::logic_error("liblzma refuses the settings of a block");
}

/// Writes into a buffer one byte smaller than the block. A part that does not fit ends the work.
class Encoder {
  public:
    explicit Encoder(std::string_view block) : input_(block), output_(block.empty() ? 0 : block.size() - 1, '\0') {
        if (lzma_lzma_preset(&options_, 6)) throw std::logic_error("liblzma does not know its preset 6");
        block_.check = LZMA_CHECK_NONE;
        block_.filters = filters_;
        block_.uncompressed_size = block.size();
        // The header stands before the data and is written after them, so it has room for the largest size.
        block_.compressed_size = lzma_block_buffer_bound(block.size());
        require(lzma_block_header_size(&block_));
        require(lzma_block_encoder(&stream_, &block_));
    }
    Encoder(const Encoder&) = delete;
    Encoder& operator=(const Encoder&) = delete;
    ~Encoder() { lzma_end(&stream_); }

    std::optional<std::string> run(const std::stop_token& stop) {
        const std::size_t front = LZMA_STREAM_HEADER_SIZE + block_.header_size;
        if (output_.size() < front || !encodeData(front, stop)) return std::nullopt;
        lzma_stream_flags flags{};
        flags.check = LZMA_CHECK_NONE;
        require(lzma_stream_header_encode(&flags, bytes(0)));
        require(lzma_block_header_encode(&block_, bytes(LZMA_STREAM_HEADER_SIZE)));
        if (!appendIndex(flags)) return std::nullopt;
        return std::move(output_);
    }

  private:
    std::uint8_t* bytes(std::size_t offset) { return reinterpret_cast<std::uint8_t*>(output_.data()) + offset; }

    bool encodeData(std::size_t front, const std::stop_token& stop) {
        stream_.next_in = reinterpret_cast<const std::uint8_t*>(input_.data());
        stream_.next_out = bytes(front);
        stream_.avail_out = output_.size() - front;
        lzma_ret status = LZMA_OK;
        while (status == LZMA_OK) {
            checkCancellation(stop);
            stream_.avail_in = std::min(stepSize, input_.size() - stream_.total_in);
            const bool isLast = stream_.total_in + stream_.avail_in == input_.size();
            status = lzma_code(&stream_, isLast ? LZMA_FINISH : LZMA_RUN);
            if (stream_.avail_out == 0 && status == LZMA_OK) return false;
        }
        if (status != LZMA_STREAM_END) require(status);
        end_ = front + stream_.total_out;
        return true;
    }

    bool appendIndex(lzma_stream_flags& flags) {
        const std::unique_ptr<lzma_index, void (*)(lzma_index*)> index(
            lzma_index_init(nullptr), [](lzma_index* each) { lzma_index_end(each, nullptr); });
        if (!index) throw std::bad_alloc();
        require(lzma_index_append(index.get(), nullptr, lzma_block_unpadded_size(&block_), input_.size()));
        flags.backward_size = lzma_index_size(index.get());
        if (output_.size() - end_ < flags.backward_size + LZMA_STREAM_HEADER_SIZE) return false;
        require(lzma_index_buffer_encode(index.get(), bytes(0), &end_, output_.size()));
        require(lzma_stream_footer_encode(&flags, bytes(end_)));
        output_.resize(end_ + LZMA_STREAM_HEADER_SIZE);
        return true;
    }

    std::string_view input_;
    std::string output_;
    std::size_t end_ = 0;
    lzma_options_lzma options_{};
    lzma_filter filters_[2] = {{LZMA_FILTER_LZMA2, &options_}, {LZMA_VLI_UNKNOWN, nullptr}};
    lzma_block block_{};
    lzma_stream stream_ = LZMA_STREAM_INIT;
};

} // namespace

std::optional<std::string> xzStream(std::string_view block, const std::stop_token& stop) {
    return Encoder(block).run(stop);
}

} // namespace corvane::Pbzx
