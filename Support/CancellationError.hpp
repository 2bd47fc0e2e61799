#pragma once

#include <exception>
#include <stop_token>

namespace corvane {

/// Thrown where a task finds that it was asked to stop. It stands beside the other error families and derives from
/// none of them, so that `catch (const std::runtime_error&)` never swallows a cancellation.
struct CancellationError : std::exception {
    const char* what() const noexcept override { return "cancelled"; }
};

inline void checkCancellation(const std::stop_token& stop) {
    if (stop.stop_requested()) throw CancellationError();
}

} // namespace corvane
