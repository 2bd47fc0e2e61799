#pragma once

#include "Support/Text.hpp"

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace corvane {

/// Bytes that do not follow their format. The text says which format, where, what was expected and what was found, for
/// example "xar: offset 4: expected a header size of at least 28, found 12". The one error type of all formats; tools
/// put the file's name before it. Texts quote bytes of the file, so whatever could steer a terminal is replaced.
class FormatError : public std::runtime_error {
  public:
    explicit FormatError(const std::string& text) : std::runtime_error(Text::printable(text)) {}
    FormatError(std::string_view format, std::uint64_t offset, std::string_view problem)
        : FormatError(std::string(format) + ": offset " + std::to_string(offset) + ": " + std::string(problem)) {}
};

} // namespace corvane
