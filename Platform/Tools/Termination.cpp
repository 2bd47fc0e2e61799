#include "Platform/Tools/Termination.hpp"

#include "Support/CancellationError.hpp"

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <thread>

namespace corvane::Tools {
namespace {

sigset_t terminationSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        struct sigaction action {};
        if (sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) sigaddset(&signals, number);
    }
    return signals;
}

/// Keeps the signals blocked in this thread and takes them up in a thread of its own.
class SignalWatch {
  public:
    SignalWatch() : signals_(terminationSignals()) {
        // The watching thread is woken by a signal of its own at the end.
        sigaddset(&signals_, SIGUSR1);
        pthread_sigmask(SIG_BLOCK, &signals_, &previousMask_);
        thread_ = std::thread([this] { watch(); });
    }
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;
    ~SignalWatch() {
        finished_ = true;
        pthread_kill(thread_.native_handle(), SIGUSR1);
        thread_.join();
        pthread_sigmask(SIG_SETMASK, &previousMask_, nullptr);
    }

    std::stop_token token() const { return source_.get_token(); }
    int signalNumber() const { return signalNumber_; }

  private:
    void watch() {
        int number = 0;
        while (!finished_ && sigwait(&signals_, &number) == 0) {
            if (finished_ || number == SIGUSR1) continue;
            signalNumber_ = number;
            source_.request_stop();
        }
    }

    sigset_t signals_;
    sigset_t previousMask_{};
    std::stop_source source_;
    std::atomic<int> signalNumber_ = 0;
    std::atomic<bool> finished_ = false;
    std::thread thread_;
};

} // namespace

int runUntilTerminated(const std::function<int(const std::stop_token& stop)>& work) {
    int number = 0;
    {
        const SignalWatch watch;
        try {
            return work(watch.token());
        } catch (const CancellationError&) {
            number = watch.signalNumber();
        }
    }
    // The mask is back as it was, so this ends the process unless the caller has blocked the signal.
    signal(number, SIG_DFL);
    raise(number);
    return 128 + number;
}

} // namespace corvane::Tools
