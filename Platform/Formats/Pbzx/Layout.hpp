#pragma once

#include <cstdint>
#include <string_view>

/// A pbzx stream is a magic, the size of a full block, then chunks to the end of the file. A chunk holds two lengths,
/// decoded and stored, and the stored bytes: the block itself where both lengths are equal, else one xz stream. All
/// numbers are 64 bits, big-endian.
namespace corvane::Pbzx {

constexpr std::string_view magic = "pbzx";

/// Bytes of a full block, as the package tools write them.
constexpr std::uint64_t standardBlockSize = std::uint64_t{1} << 24;

/// Bytes of the magic and the block size.
constexpr std::uint64_t headerSize = 12;

/// Bytes of the two lengths before a chunk's data.
constexpr std::uint64_t chunkHeaderSize = 16;

} // namespace corvane::Pbzx
