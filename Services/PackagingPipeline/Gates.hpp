#pragma once

#include "../../Support/AsyncStream.hpp"

#include <stop_token>

namespace corvane {

/// A place where a job waits for a decision of its front end. Signals are buffered: one sent early satisfies the next
/// wait, and each wait uses up one. Both sides may be on any thread.
class Gate {
  public:
    Gate() : Gate(AsyncStream<Signal>::makeStream()) {}

    /// Lets one wait pass.
    void signal() const { continuation_.yield({}); }
    /// Ends the gate: what waits, or comes later and finds no signal left, fails.
    void finish() const { continuation_.finish(); }
    /// Waits for a signal.
    /// @throws CancellationError when the gate has ended or a stop is requested
    void wait(const std::stop_token& stop) const;

  private:
    struct Signal {};
    explicit Gate(std::pair<AsyncStream<Signal>, AsyncStream<Signal>::Continuation> ends)
        : signals_(std::move(ends.first)), continuation_(std::move(ends.second)) {}

    AsyncStream<Signal> signals_;
    AsyncStream<Signal>::Continuation continuation_;
};

/// Where a job waits until the user has made the disk image mountable.
class MountInteractionGate : public Gate {};

/// Where a job waits until signing without a trusted timestamp is approved.
class UntimestampedSigningGate : public Gate {
  public:
    void waitForApproval(const std::stop_token& stop) const { wait(stop); }
};

} // namespace corvane
