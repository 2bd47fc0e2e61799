#pragma once

#include "Platform/Formats/BufferPool.hpp"
#include "Platform/Formats/ReadAheadSource.hpp"

#include <memory>
#include <optional>

/// The archive of a component's files, or of its scripts: cpio, bare or compressed.
namespace corvane::Payload {

/// Gives the cpio archive in a payload, whatever compresses it: gzip, pbzx or nothing, told by the first bytes.
/// Decoding goes on in threads of its own, ahead of what is read.
class Reader : public ByteSource {
  public:
    /// @param payload is read in another thread while the reader exists, and must outlive it
    /// @throws FormatError for a payload of another kind
    explicit Reader(ByteSource& payload);

    std::size_t read(std::span<char> buffer) override { return source_->read(buffer); }

  private:
    PeekingSource peeking_;
    std::unique_ptr<ByteSource> decoder_;
    BufferPool pool_;
    std::optional<ReadAheadSource> ahead_;
    ByteSource* source_ = nullptr;
};

} // namespace corvane::Payload
