#include "Support/FileError.hpp"

#include "Support/Text.hpp"

namespace corvane {

FileError::FileError(const std::string& action, const FileURL& url, std::error_code code)
    : std::runtime_error(action + " " + Text::printable(url.string()) + ": " + code.message()),
      url_(url),
      code_(code) {}

} // namespace corvane
