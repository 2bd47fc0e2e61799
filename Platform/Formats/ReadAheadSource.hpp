#pragma once

#include "Platform/Formats/BufferPool.hpp"

#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <stop_token>
#include <thread>
#include <vector>

namespace corvane {

/// Reads another source in a thread of its own, ahead of whoever reads this one: what decoding costs runs beside what
/// is done with the bytes. The bytes, and the exception that the other source throws after them, are the same.
class ReadAheadSource : public ByteSource {
  public:
    /// @param inner is read in the other thread until this source is destroyed, and must outlive it
    /// @param pool likewise
    /// @param depth buffers to fill ahead, at least 1
    ReadAheadSource(ByteSource& inner, BufferPool& pool, std::size_t depth);
    /// Waits for the inner source's current read to end.
    ~ReadAheadSource() override;

    std::size_t read(std::span<char> buffer) override;

  private:
    /// A filled buffer; `rest` is what was not yet read of it.
    struct Piece {
        std::vector<char> buffer;
        std::string_view rest;
    };

    void fill(const std::stop_token& stop);
    bool readPiece();
    bool nextPiece();

    ByteSource& inner_;
    BufferPool& pool_;
    std::size_t depth_;
    Piece current_;

    std::mutex mutex_;
    std::condition_variable_any changed_;
    std::deque<Piece> pieces_;
    bool ended_ = false;
    std::exception_ptr failure_;

    /// Last, so that it ends first.
    std::jthread thread_;
};

} // namespace corvane
