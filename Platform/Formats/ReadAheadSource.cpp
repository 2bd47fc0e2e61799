#include "Platform/Formats/ReadAheadSource.hpp"

#include <algorithm>
#include <utility>

namespace corvane {

ReadAheadSource::ReadAheadSource(ByteSource& inner, BufferPool& pool, std::size_t depth)
    : inner_(inner), pool_(pool), depth_(depth), thread_([this](const std::stop_token& stop) { fill(stop); }) {}

ReadAheadSource::~ReadAheadSource() {
    thread_.request_stop();
    if (thread_.joinable()) thread_.join();
    if (!current_.buffer.empty()) pool_.giveBack(std::move(current_.buffer));
    for (Piece& each : pieces_) pool_.giveBack(std::move(each.buffer));
}

void ReadAheadSource::fill(const std::stop_token& stop) {
    std::exception_ptr failure;
    try {
        while (!stop.stop_requested() && readPiece()) {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, stop, [this] { return pieces_.size() < depth_; });
        }
    } catch (...) {
        failure = std::current_exception();
    }
    const std::lock_guard lock(mutex_);
    failure_ = std::move(failure);
    ended_ = true;
    changed_.notify_all();
}

/// False at the end of the inner source.
bool ReadAheadSource::readPiece() {
    std::vector<char> buffer = pool_.take();
    const std::size_t count = readFully(inner_, buffer);
    const std::string_view bytes(buffer.data(), count);
    const bool isFull = count == buffer.size();
    {
        const std::lock_guard lock(mutex_);
        pieces_.push_back({std::move(buffer), bytes});
    }
    changed_.notify_all();
    return isFull;
}

/// Waits for the next piece; false at the end.
bool ReadAheadSource::nextPiece() {
    if (!current_.buffer.empty()) pool_.giveBack(std::exchange(current_, {}).buffer);
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return !pieces_.empty() || ended_; });
        if (!pieces_.empty()) {
            current_ = std::move(pieces_.front());
            pieces_.pop_front();
        }
    }
    changed_.notify_all();
    return !current_.buffer.empty();
}

std::size_t ReadAheadSource::read(std::span<char> buffer) {
    while (current_.rest.empty()) {
        if (nextPiece()) continue;
        // The other thread lets go of the exception before this one throws it.
        if (thread_.joinable()) thread_.join();
        if (failure_) std::rethrow_exception(failure_);
        return 0;
    }
    const std::size_t count = current_.rest.copy(buffer.data(), buffer.size());
    current_.rest.remove_prefix(count);
    return count;
}

} // namespace corvane
