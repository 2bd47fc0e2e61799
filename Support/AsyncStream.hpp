#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <utility>

namespace corvane {

/// The reading end of an unbounded channel. Copies share one end; when the last copy goes, the stream terminates.
/// All operations of both ends may be called from any thread; values come out in the order in which they went in.
template <class Value>
class AsyncStream {
    struct State {
        std::mutex mutex;
        std::condition_variable_any changed;
        std::deque<Value> values;
        bool finished = false;
        std::function<void()> onTermination;
    };

    /// Ends the stream and runs the hook, once, outside the lock: the hook may use other streams.
    static void finish(State& state) {
        std::function<void()> hook;
        {
            const std::lock_guard lock(state.mutex);
            if (state.finished) return;
            state.finished = true;
            hook = std::move(state.onTermination);
            state.onTermination = nullptr;
        }
        state.changed.notify_all();
        if (hook) hook();
    }

    struct ReadingEnd {
        explicit ReadingEnd(std::shared_ptr<State> shared) : state(std::move(shared)) {}
        ReadingEnd(const ReadingEnd&) = delete;
        ReadingEnd& operator=(const ReadingEnd&) = delete;
        ~ReadingEnd() { finish(*state); }
        std::shared_ptr<State> state;
    };

  public:
    /// The writing end. Writing never waits; what is written after the end of the stream is dropped.
    class Continuation {
      public:
        void yield(Value value) const {
            {
                const std::lock_guard lock(state_->mutex);
                if (state_->finished) return;
                state_->values.push_back(std::move(value));
            }
            state_->changed.notify_one();
        }

        /// Ends the stream: values already written are still delivered. A second call has no effect.
        void finish() const { AsyncStream::finish(*state_); }

        /// Sets the hook that runs once when the stream terminates: finished by a writer, abandoned by the reader, or
        /// a wait of the reader ended by its stop token. It runs on the thread that caused the end, at once if the
        /// stream has ended already.
        void setOnTermination(std::function<void()> hook) const {
            {
                const std::lock_guard lock(state_->mutex);
                if (!state_->finished) {
                    state_->onTermination = std::move(hook);
                    return;
                }
            }
            hook();
        }

      private:
        friend class AsyncStream;
        explicit Continuation(std::shared_ptr<State> state) : state_(std::move(state)) {}
        std::shared_ptr<State> state_;
    };

    static std::pair<AsyncStream, Continuation> makeStream() {
        auto state = std::make_shared<State>();
        return {AsyncStream(state), Continuation(state)};
    }

    /// Waits for the next value; nothing when the stream has ended. A stop request ends the wait and the stream.
    std::optional<Value> next(const std::stop_token& stop = {}) const {
        State& state = *end_->state;
        {
            std::unique_lock lock(state.mutex);
            state.changed.wait(lock, stop, [&] { return !state.values.empty() || state.finished; });
            if (!state.values.empty()) {
                std::optional<Value> value(std::move(state.values.front()));
                state.values.pop_front();
                return value;
            }
        }
        finish(state);
        return std::nullopt;
    }

  private:
    explicit AsyncStream(std::shared_ptr<State> state) : end_(std::make_shared<ReadingEnd>(std::move(state))) {}
    std::shared_ptr<ReadingEnd> end_;
};

} // namespace corvane
