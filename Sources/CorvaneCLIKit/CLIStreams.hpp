#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace corvane {

/// The two output streams of the program behind one lock, so that texts written from different threads never mix.
class CLIStreams {
  public:
    using Writer = std::function<void(std::string_view)>;

    CLIStreams(Writer standardOutput, Writer standardError)
        : stdoutWriter_(std::move(standardOutput)), stderrWriter_(std::move(standardError)) {}
    CLIStreams(const CLIStreams&) = delete;
    CLIStreams& operator=(const CLIStreams&) = delete;

    /// The process's own standard output and standard error, unbuffered. What the system refuses to take is dropped.
    static const std::shared_ptr<CLIStreams>& standard();

    /// Write a whole text; callable from any thread.
    void standardOutput(std::string_view text);
    void standardError(std::string_view text);

  private:
    std::mutex lock_;
    Writer stdoutWriter_;
    Writer stderrWriter_;
};

} // namespace corvane
