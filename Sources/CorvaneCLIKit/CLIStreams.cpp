#include "Sources/CorvaneCLIKit/CLIStreams.hpp"

#include "Support/WriteAll.hpp"

#include <unistd.h>

namespace corvane {
const std::shared_ptr<CLIStreams>& CLIStreams::standard() {
    static const auto streams =
        std::make_shared<CLIStreams>([](std::string_view text) { writeAll(STDOUT_FILENO, text); },
                                     [](std::string_view text) { writeAll(STDERR_FILENO, text); });
    return streams;
}

void CLIStreams::standardOutput(std::string_view text) {
    const std::lock_guard guard(lock_);
    stdoutWriter_(text);
}

void CLIStreams::standardError(std::string_view text) {
    const std::lock_guard guard(lock_);
    stderrWriter_(text);
}

} // namespace corvane
