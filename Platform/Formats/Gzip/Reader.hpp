#pragma once

#include "Platform/Formats/DecodingSource.hpp"

#include <memory>

namespace corvane::Gzip {

/// What stands round the deflated data.
enum class Framing { gzip, zlib, either };

/// Inflates one gzip member, or one zlib stream, and checks its length and checksum. A second member is refused, as
/// the installer of packages refuses it.
class Reader : public DecodingSource {
  public:
    /// @param compressed must outlive the reader
    explicit Reader(ByteSource& compressed, Framing framing = Framing::gzip);
    ~Reader() override;

  protected:
    bool decode(std::string_view& input, std::span<char>& output) override;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace corvane::Gzip
