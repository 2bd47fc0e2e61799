#pragma once

#include <functional>
#include <thread>

namespace corvane {

/// Routes SIGINT to a handler while it is started, instead of ending the process. One at a time in a process.
class InterruptController {
  public:
    /// @param handler called on a thread of the controller's own for each interrupt; several that come close together
    ///        may be told as one
    explicit InterruptController(std::function<void()> handler) : handler_(std::move(handler)) {}
    InterruptController(const InterruptController&) = delete;
    InterruptController& operator=(const InterruptController&) = delete;
    ~InterruptController() { stop(); }

    /// Whether the process was started with interrupts ignored, as a job in the background of a script is.
    static bool areInterruptsIgnored();

    void start();
    /// Gives SIGINT its default action back. The handler is not called any more when this returns.
    void stop();

  private:
    std::function<void()> handler_;
    std::jthread thread_;
};

} // namespace corvane
