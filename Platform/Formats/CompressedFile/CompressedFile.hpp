#pragma once

#include "Platform/Formats/ByteSource.hpp"
#include "Platform/Formats/RandomAccess.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

/// Files that a volume keeps compressed: a header in the attribute com.apple.decmpfs, the data behind it or in the
/// resource fork, in pieces of 64 KiB.
namespace corvane::CompressedFile {

constexpr const char* attributeName = "com.apple.decmpfs";

/// Bytes of the attribute that say what it is; the data follows.
constexpr std::size_t headerSize = 16;

/// Size of the plain data. @param attribute its header, and what follows or not. @throws FormatError
std::uint64_t plainSize(std::string_view attribute);
/// Whether the data stands in the resource fork. @throws FormatError
bool needsResourceFork(std::string_view attribute);

/// The plain data.
/// @param resourceFork null when the file has none
/// @throws FormatError, at once for a kind that nobody here can decode, and while it is read
std::unique_ptr<ByteSource> open(std::string attribute, std::unique_ptr<RandomAccess> resourceFork);

} // namespace corvane::CompressedFile
