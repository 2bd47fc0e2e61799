#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace corvane::Lzfse {

/// Plain bytes while they are decoded: their number is fixed at the start, and matches copy from what stands already.
class Output {
  public:
    explicit Output(std::size_t size) : bytes_(size, '\0') {}

    std::size_t position() const { return position_; }
    /// Bytes that are still to come.
    std::size_t room() const { return bytes_.size() - position_; }

    /// @throws FormatError when there is no room
    void append(std::string_view literals);
    /// Repeats bytes from `distance` bytes back on; those it writes itself may be among them.
    /// @throws FormatError when there is no room, or the distance passes the start
    void repeat(std::size_t distance, std::size_t length);

    /// All bytes. @throws FormatError when some are missing
    std::string finish() &&;

  private:
    void requireRoom(std::size_t count) const;

    std::string bytes_;
    std::size_t position_ = 0;
};

} // namespace corvane::Lzfse
