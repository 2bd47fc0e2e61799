#pragma once

#include "Platform/Formats/DecodingSource.hpp"

#include <memory>

namespace corvane::Bzip2 {

/// Expands one bzip2 stream and checks its checksums.
class Reader : public DecodingSource {
  public:
    /// @param compressed must outlive the reader
    explicit Reader(ByteSource& compressed);
    ~Reader() override;

  protected:
    bool decode(std::string_view& input, std::span<char>& output) override;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace corvane::Bzip2
