#pragma once

#include "Platform/Formats/Gzip/Reader.hpp"

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace corvane::Gzip {

/// Compresses piece by piece. A gzip member's header is the fixed one of packages: no name, no time, system 3.
/// For one thread at a time.
class Writer {
  public:
    using Sink = std::function<void(std::string_view)>;

    /// @param sink receives the compressed bytes; what it throws passes through
    /// @param framing gzip or zlib
    /// @param level 1 to 9
    Writer(Sink sink, Framing framing = Framing::gzip, int level = 6);
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
    ~Writer();

    void write(std::string_view bytes);
    /// Ends the stream. Called once, as the last operation.
    void finish();

  private:
    void run(std::string_view bytes, int flush);

    struct State;
    std::unique_ptr<State> state_;
    Sink sink_;
};

/// The whole of `bytes` as one stream.
std::string compressed(std::string_view bytes, Framing framing, int level);

} // namespace corvane::Gzip
