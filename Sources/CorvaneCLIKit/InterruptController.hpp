#pragma once

#include <functional>
#include <thread>
#include <vector>

namespace corvane {

/// Routes SIGINT, SIGTERM and SIGHUP to a handler while it is started, instead of ending the process. Those that are
/// ignored, as interrupts are for a job in the background of a script, stay so. One at a time in a process.
class InterruptController {
  public:
    /// @param handler called with the signal's number, on a thread of the controller's own, for each signal; several
    ///        that come close together may be told as one
    explicit InterruptController(std::function<void(int)> handler) : handler_(std::move(handler)) {}
    InterruptController(const InterruptController&) = delete;
    InterruptController& operator=(const InterruptController&) = delete;
    ~InterruptController() { stop(); }

    void start();
    /// Gives the signals their default action back. The handler is not called any more when this returns.
    void stop();

    /// Ends the process as the signal would have, had nobody routed it.
    static void endProcess(int signal);

  private:
    std::function<void(int)> handler_;
    std::vector<int> routed_;
    std::jthread thread_;
};

} // namespace corvane
