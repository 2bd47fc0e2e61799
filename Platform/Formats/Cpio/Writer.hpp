#pragma once

#include "Platform/Formats/ByteSource.hpp"
#include "Platform/Formats/Cpio/Entry.hpp"

#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

namespace corvane::Cpio {

/// Inode numbers have six octal digits; archives with more entries count round.
constexpr std::uint64_t inodeMask = 0777777;

/// Writes an archive in the octal form as package tools do: names behind "./", devices 0, zeros up to a multiple
/// of 512 bytes at the end.
class Writer {
  public:
    using Sink = std::function<void(std::string_view)>;

    /// @param sink receives the archive's bytes; what it throws passes through
    explicit Writer(Sink sink) : sink_(std::move(sink)) {}

    /// Appends an entry with the inode number that it names, modulo 2^18. Data are read from the source up to its end,
    /// for files only. @throws FormatError when a number does not fit its field, or the source's length is not the size
    void add(const Entry& entry, ByteSource* data = nullptr);
    /// Appends the trailer. Called once, as the last operation.
    void finish();

  private:
    void emit(std::string_view bytes);
    void header(std::string_view name, const Entry& entry, std::uint64_t size);
    void copy(ByteSource& data, std::uint64_t size);

    Sink sink_;
    std::vector<char> buffer_;
    std::uint64_t count_ = 0;
    std::uint64_t offset_ = 0;
};

} // namespace corvane::Cpio
