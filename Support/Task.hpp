#pragma once

#include <functional>
#include <future>
#include <memory>
#include <stop_token>
#include <thread>

namespace corvane {

/// A shared handle on work that goes on in a thread of its own. Copies refer to the same work; when the last one goes,
/// the work is asked to stop and waited for, so no thread outlives its handles.
class Task {
  public:
    /// Starts the work, which gets the token of `cancel` and must not throw.
    explicit Task(std::function<void(std::stop_token)> work) : state_(std::make_shared<State>()) {
        auto done = std::make_shared<std::promise<void>>();
        state_->done = done->get_future().share();
        state_->thread = std::jthread([work = std::move(work), done](const std::stop_token& stop) {
            work(stop);
            done->set_value();
        });
    }

    /// Asks the work to stop; callable from any thread, any number of times.
    void cancel() const { state_->thread.request_stop(); }

    /// The source behind `cancel`, for those who must not keep the work's handle.
    std::stop_source stopSource() const { return state_->thread.get_stop_source(); }

    /// Returns when the work has ended.
    void wait() const { state_->done.wait(); }

  private:
    struct State {
        std::shared_future<void> done;
        std::jthread thread;
    };
    std::shared_ptr<State> state_;
};

} // namespace corvane
