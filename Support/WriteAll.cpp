#include "Support/WriteAll.hpp"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace corvane {
namespace {

/// For a descriptor that somebody has set not to block.
bool waitUntilWritable(int descriptor) {
    pollfd writable{descriptor, POLLOUT, 0};
    return ::poll(&writable, 1, -1) >= 0 || errno == EINTR;
}

} // namespace

bool writeAll(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0 && errno == EAGAIN && waitUntilWritable(descriptor)) continue;
        if (count < 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

} // namespace corvane
