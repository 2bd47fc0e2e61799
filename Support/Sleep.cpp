#include "Support/Sleep.hpp"

#include "Support/CancellationError.hpp"

#include <condition_variable>
#include <mutex>

namespace corvane {

void sleepFor(std::chrono::milliseconds duration, const std::stop_token& stop) {
    std::mutex mutex;
    std::condition_variable_any stopped;
    std::unique_lock lock(mutex);
    stopped.wait_until(lock, stop, std::chrono::steady_clock::now() + duration, [] { return false; });
    checkCancellation(stop);
}

} // namespace corvane
