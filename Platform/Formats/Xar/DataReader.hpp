#pragma once

#include "Platform/Formats/ByteSource.hpp"
#include "Platform/Formats/Xar/Archive.hpp"

#include <memory>

namespace corvane::Xar {

/// Reads the decoded content of one entry through buffers of fixed size. The read that returns 0 has compared the
/// decoded size and both checksums with what the archive states; more bytes than stated are never returned.
class DataReader : public ByteSource {
  public:
    /// @param archive must outlive the reader
    DataReader(const Archive& archive, const Data& data);
    ~DataReader() override;

    /// @throws FileError, FormatError
    std::size_t read(std::span<char> buffer) override;

  private:
    std::unique_ptr<ByteSource> stored_;
    std::unique_ptr<ByteSource> verifiedStored_;
    std::unique_ptr<ByteSource> decoder_;
    std::unique_ptr<ByteSource> verifiedDecoded_;
};

} // namespace corvane::Xar
