#pragma once

#include "FileURL.hpp"

#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>

namespace corvane {

/// The system's refusal of a file operation. The text names what failed, the file and the system's reason, for example
/// "Cannot create the folder /out: Permission denied". Names come from archives too, so whatever could steer a terminal
/// is replaced.
class FileError : public std::runtime_error {
  public:
    /// @param action what was tried, for example "Cannot read"
    FileError(const std::string& action, const FileURL& url, std::error_code code);

    const FileURL& url() const { return url_; }
    const std::error_code& code() const { return code_; }

  private:
    FileURL url_;
    std::error_code code_;
};

/// The error of the system call that has just failed.
inline std::error_code lastSystemError() { return {errno, std::generic_category()}; }

} // namespace corvane
