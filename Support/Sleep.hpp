#pragma once

#include <chrono>
#include <stop_token>

namespace corvane {

/// Waits on the monotonic clock. @throws CancellationError as soon as a stop is requested
void sleepFor(std::chrono::milliseconds duration, const std::stop_token& stop);

} // namespace corvane
