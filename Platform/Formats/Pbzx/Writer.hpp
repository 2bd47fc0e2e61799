#pragma once

#include <functional>
#include <memory>
#include <string_view>

namespace corvane::Pbzx {

/// Compresses piece by piece, in blocks of 16 MiB, several of them at once in threads of its own. The same bytes give
/// the same result whatever their number. For one thread at a time; no thread outlives the writer.
class Writer {
  public:
    using Sink = std::function<void(std::string_view)>;

    /// @param sink receives the result in order, in calls of `write` and `finish`; what it throws passes through, and
    /// ends the use of the writer
    /// @param threads blocks to compress at once; each takes about 140 MB of memory. 0 for one a processor
    explicit Writer(Sink sink, unsigned threads = 0);
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
    /// Without a `finish`, gives up the blocks that are being compressed.
    ~Writer();

    void write(std::string_view bytes);
    /// Ends the stream. Called once, as the last operation.
    void finish();

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace corvane::Pbzx
