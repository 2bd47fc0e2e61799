#pragma once

#include <cstddef>
#include <string_view>

/// What names of archive entries must keep to before they may become names of files.
namespace corvane::EntryName {

/// Limits in bytes, but for the depth in folders.
constexpr std::size_t nameLimit = 255;
constexpr std::size_t pathLimit = 4096;
constexpr std::size_t depthLimit = 512;

/// One path component: not empty, not "." or "..", without "/" and NUL, at most `nameLimit` bytes.
/// @throws FormatError that begins with `format`
void checkComponent(std::string_view name, std::string_view format);

/// A relative path of such components, at most `pathLimit` bytes and `depthLimit` components. @throws FormatError
void checkPath(std::string_view path, std::string_view format);

} // namespace corvane::EntryName
