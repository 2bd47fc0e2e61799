#pragma once

#include <cstdint>
#include <string_view>

namespace corvane {

/// The CRC that POSIX specifies for `cksum`: polynomial 0x04C11DB7, not reflected, over the bytes and then their count.
/// It is another one than zlib's. For one thread at a time.
class PosixChecksum {
  public:
    void update(std::string_view bytes);
    /// The checksum; of no bytes it is 0xFFFFFFFF. Called once, as the last operation.
    std::uint32_t finish();

  private:
    std::uint32_t value_ = 0;
    std::uint64_t length_ = 0;
};

/// The checksum of bytes that are all in memory.
std::uint32_t posixChecksum(std::string_view bytes);

} // namespace corvane
