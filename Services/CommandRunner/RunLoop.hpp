#pragma once

#include "Services/CommandRunner.hpp"
#include "Services/CommandRunner/ChildProcess.hpp"

#include <poll.h>

#include <array>
#include <chrono>
#include <optional>
#include <string>

namespace corvane {

/// Follows one child until its run is over: drains both pipes, sees the child end, and ends it when asked to stop.
class RunLoop {
  public:
    /// @param wake a descriptor that becomes readable when the child shall be ended
    RunLoop(const ChildProcess& child, int wake, const CommandRunner::Timing& timing);

    /// Returns when the child has ended, not yet reaped, and its pipes have reached their end or the time for that is
    /// up.
    void run();

    /// The bytes read so far.
    const std::string& standardOutput() const { return texts_[output]; }
    const std::string& standardError() const { return texts_[errors]; }

  private:
    using Clock = std::chrono::steady_clock;
    enum Source : std::size_t { output, errors, childEnd, wake };

    bool isReady(Source source) const { return sources_[source].revents != 0; }
    bool isClosed(Source source) const { return sources_[source].fd < 0; }
    /// The loop looks at this source no more.
    void close(Source source) { sources_[source].fd = -1; }

    bool isOver() const;
    bool isDeadlinePassed() const { return deadline_ && Clock::now() >= *deadline_; }
    void wait();
    void readChunk(Source pipe);
    void noteEnd();
    void terminate();
    void kill();

    const ChildProcess& child_;
    const CommandRunner::Timing timing_;
    std::array<pollfd, 4> sources_;
    std::array<std::string, 2> texts_;
    /// While the child runs: when it is killed, set once it was asked to terminate. After its end: when the pipes are
    /// given up.
    std::optional<Clock::time_point> deadline_;
};

} // namespace corvane
