#pragma once

#include <stdexcept>

namespace corvane {

/// A child that could not be started. The text names the executable and the system's reason.
class LaunchError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

} // namespace corvane
