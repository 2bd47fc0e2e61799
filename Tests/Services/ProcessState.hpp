#pragma once

#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <thread>

namespace corvane::TestSupport {

/// Waits until a condition holds; false when it does not within some seconds.
inline bool becomesTrue(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

inline std::ptrdiff_t openDescriptors() {
    using std::filesystem::directory_iterator;
    return std::distance(directory_iterator("/dev/fd"), directory_iterator());
}

/// True when this process has no child, neither running nor waiting to be reaped.
inline bool isChildless() {
    siginfo_t child{};
    return ::waitid(P_ALL, 0, &child, WEXITED | WNOHANG | WNOWAIT) != 0 && errno == ECHILD;
}

} // namespace corvane::TestSupport
