#pragma once

#include "Platform/Formats/ByteSource.hpp"

#include <string_view>
#include <vector>

namespace corvane {

/// The reading loop that compressed streams share. The encoded source must hold exactly one stream: bytes after it, and
/// an end within it, are a FormatError.
class DecodingSource : public ByteSource {
  public:
    std::size_t read(std::span<char> buffer) final;

  protected:
    /// @param encoded must outlive this source
    /// @param format how errors call the stream; a literal
    DecodingSource(ByteSource& encoded, std::string_view format);

    /// Decodes from the front of `input` to the front of `output`, as far as either lasts, and removes from both what
    /// was used. True when the stream is complete.
    virtual bool decode(std::string_view& input, std::span<char>& output) = 0;

    [[noreturn]] void fail(std::string_view problem) const;

  private:
    void refill();
    void requireEnd();

    ByteSource& encoded_;
    std::string_view format_;
    std::vector<char> buffer_;
    std::string_view input_;
    std::uint64_t consumed_ = 0;
    bool drained_ = false;
    bool ended_ = false;
};

} // namespace corvane
