#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

namespace corvane {

/// The main thread of a program, as those see it who have something to be done there. A graphical front end wraps its
/// toolkit's event loop in one of these; a program without such a loop takes a `MainRunLoop`.
class MainExecutor {
  public:
    MainExecutor() = default;
    MainExecutor(const MainExecutor&) = delete;
    MainExecutor& operator=(const MainExecutor&) = delete;
    virtual ~MainExecutor() = default;

    /// Has a task run on the main thread, soon, after all that were posted before, and never within this call. Tasks do
    /// not throw. Callable from any thread, also when the loop is not running yet or has ended; then they wait.
    virtual void post(std::function<void()> task) = 0;

    /// Makes an executor that of the process. To be called before the first `JobStore` is made: a store keeps to the
    /// one that it was made with.
    static void install(std::shared_ptr<MainExecutor> executor);
    /// The process's executor. @throws std::logic_error when none is installed
    static std::shared_ptr<MainExecutor> shared();
};

/// A loop that does nothing but what is posted to it.
class MainRunLoop : public MainExecutor {
  public:
    void post(std::function<void()> task) override;

    /// Runs tasks on the calling thread, waiting for more, until `stop` is called. May be called again.
    void run();
    /// Ends `run` behind the task that runs now; what is posted waits for the next one. From any thread.
    void stop();

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> tasks_;
    bool isStopped_ = false;
};

} // namespace corvane
