#include "Support/ContentCopy.hpp"

#include "Support/CancellationError.hpp"
#include "Support/FileError.hpp"
#include "Support/WriteAll.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <array>

namespace corvane {
namespace {

/// Small enough for the stack. Files up to this size take two calls; the kernel's own copying is for larger ones.
constexpr std::size_t bufferSize = std::size_t{1} << 16;

/// Lets the kernel move the bytes. It moves as much as it is able to and advances both positions.
void copyWithinKernel([[maybe_unused]] int input, [[maybe_unused]] int output,
                      [[maybe_unused]] const std::stop_token& stop) {
#ifdef __linux__
    constexpr std::size_t step = std::size_t{1} << 26;
    ssize_t count = 0;
    do {
        checkCancellation(stop);
        count = ::copy_file_range(input, nullptr, output, nullptr, step, 0);
    } while (count > 0 || (count < 0 && errno == EINTR));
#endif
}

bool isLarge(int file) {
    struct stat status {};
    return ::fstat(file, &status) == 0 && status.st_size > static_cast<off_t>(bufferSize);
}

} // namespace

void copyContent(int input, const FileURL& inputName, int output, const FileURL& outputName,
                 const std::stop_token& stop) {
    if (isLarge(input)) copyWithinKernel(input, output, stop);
    std::array<char, bufferSize> buffer;
    for (;;) {
        checkCancellation(stop);
        const ssize_t count = ::read(input, buffer.data(), buffer.size());
        if (count == 0) return;
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw FileError("Cannot read", inputName, lastSystemError());
        if (!writeAll(output, {buffer.data(), static_cast<std::size_t>(count)})) {
            throw FileError("Cannot write", outputName, lastSystemError());
        }
    }
}

} // namespace corvane
