#pragma once

#include "Sources/CorvaneCLIKit/InterruptController.hpp"

#include <atomic>
#include <exception>
#include <stop_token>

namespace corvane {

/// Runs work that a signal ends, with the process, as it would without us: but first the work's token is stopped, so
/// that its tool and its temporary folder are gone.
/// @param work gets the token; what it returns is returned, what it throws passes through
template <class Work>
auto runInterruptibly(Work work) {
    std::stop_source source;
    std::atomic<int> received = 0;
    InterruptController interrupts([&](int signal) {
        received = signal;
        source.request_stop();
    });
    interrupts.start();
    const auto endIfInterrupted = [&] {
        interrupts.stop();
        if (received != 0) InterruptController::endProcess(received);
    };
    try {
        auto result = work(source.get_token());
        endIfInterrupted();
        return result;
    } catch (const std::exception&) {
        endIfInterrupted();
        throw;
    }
}

} // namespace corvane
