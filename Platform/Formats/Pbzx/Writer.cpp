#include "Platform/Formats/Pbzx/Writer.hpp"

#include "Platform/Formats/BigEndian.hpp"
#include "Platform/Formats/Pbzx/Layout.hpp"
#include "Platform/Formats/Pbzx/XzEncoder.hpp"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <deque>
#include <future>
#include <optional>
#include <semaphore>
#include <string>
#include <thread>
#include <utility>

namespace corvane::Pbzx {
namespace {

std::string bigEndian(std::uint64_t number) {
    std::string bytes;
    appendBigEndian(bytes, number, 8);
    return bytes;
}

/// A block that becomes a chunk in a thread of its own.
class Compression {
  public:
    /// @param processors one is taken by the caller, and given back when the work is over
    Compression(std::string block, std::counting_semaphore<>& processors)
        : thread_([this, &processors, moved = std::move(block)](const std::stop_token& stop) mutable {
              try {
                  chunk_.set_value(chunk(std::move(moved), stop));
              } catch (...) {
                  chunk_.set_exception(std::current_exception());
              }
              processors.release();
          }) {}

    bool isComplete() const { return result_.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }
    /// Waits for the chunk's header and data. Called once.
    std::pair<std::string, std::string> take() {
        result_.wait();
        thread_.join();
        return result_.get();
    }

    void giveUp() { thread_.request_stop(); }

  private:
    static std::pair<std::string, std::string> chunk(std::string block, const std::stop_token& stop) {
        std::optional<std::string> smaller = xzStream(block, stop);
        const std::uint64_t decodedSize = block.size();
        std::string stored = smaller ? *std::move(smaller) : std::move(block);
        // Finished chunks may wait for their turn; let them take what they need.
        stored.shrink_to_fit();
        return {bigEndian(decodedSize) + bigEndian(stored.size()), std::move(stored)};
    }

    std::promise<std::pair<std::string, std::string>> chunk_;
    std::future<std::pair<std::string, std::string>> result_ = chunk_.get_future();
    std::jthread thread_;
};

} // namespace

struct Writer::State {
    State(Sink chosen, unsigned threads) : sink(std::move(chosen)), threadCount(threads), processors(threads) {}

    /// Waits until a processor is free for the block. So that no processor waits for a slow neighbour, as many chunks
    /// again may be complete and not yet written.
    void startBlock() {
        while (blocks.size() >= 2 * threadCount) passOnFirst();
        processors.acquire();
        blocks.emplace_back(std::exchange(filling, {}), processors);
        while (!blocks.empty() && blocks.front().isComplete()) passOnFirst();
    }

    void passOnFirst() {
        startStream();
        const auto [header, data] = blocks.front().take();
        blocks.pop_front();
        sink(header);
        sink(data);
    }

    void startStream() {
        if (!std::exchange(started, true)) sink(std::string(magic) + bigEndian(standardBlockSize));
    }

    Sink sink;
    bool started = false;
    std::string filling;
    std::size_t threadCount;
    std::counting_semaphore<> processors;
    /// In order; after what they use, so that they end first.
    std::deque<Compression> blocks;
};

Writer::Writer(Sink sink, unsigned threads)
    : state_(std::make_unique<State>(std::move(sink),
                                     threads != 0 ? threads : std::max(1U, std::thread::hardware_concurrency()))) {}

Writer::~Writer() {
    // All at once: each one's end takes a moment.
    for (Compression& each : state_->blocks) each.giveUp();
}

void Writer::write(std::string_view bytes) {
    while (!bytes.empty()) {
        state_->filling.reserve(standardBlockSize);
        const std::string_view piece = bytes.substr(0, standardBlockSize - state_->filling.size());
        state_->filling += piece;
        bytes.remove_prefix(piece.size());
        if (state_->filling.size() == standardBlockSize) state_->startBlock();
    }
}

void Writer::finish() {
    if (!state_->filling.empty()) state_->startBlock();
    while (!state_->blocks.empty()) state_->passOnFirst();
    state_->startStream();
}

} // namespace corvane::Pbzx
