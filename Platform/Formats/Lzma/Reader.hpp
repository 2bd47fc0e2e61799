#pragma once

#include "Platform/Formats/DecodingSource.hpp"

#include <memory>

namespace corvane::Lzma {

/// What stands round the compressed data: an xz stream, or that or the older header of LZMA alone, which tell
/// themselves by their first bytes.
enum class Container { xz, either };

/// Expands one stream of LZMA data, in xz form with any filters and any check, which is verified. Dictionaries may have
/// up to 64 MiB.
class Reader : public DecodingSource {
  public:
    /// @param compressed must outlive the reader
    explicit Reader(ByteSource& compressed, Container container = Container::xz);
    ~Reader() override;

  protected:
    bool decode(std::string_view& input, std::span<char>& output) override;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace corvane::Lzma
