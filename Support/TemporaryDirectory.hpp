#pragma once

#include "Support/FileURL.hpp"

#include <string_view>

namespace corvane {

/// A new private folder in the system's temporary directory, named `prefix` and a UUID, that goes with all its content
/// when its owner does. A folder that cannot be removed is left without an error.
class TemporaryDirectory {
  public:
    /// @throws FileError when the folder cannot be created
    explicit TemporaryDirectory(std::string_view prefix);
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    ~TemporaryDirectory();

    const FileURL& url() const { return url_; }

  private:
    FileURL url_;
};

} // namespace corvane
