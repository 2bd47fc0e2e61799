#pragma once

#include "Sources/CorvaneCLIKit/InterruptController.hpp"

#include <csignal>
#include <exception>
#include <stop_token>

namespace corvane {

/// Runs work that an interrupt ends, with the process, as it would without us: but first the work's token is stopped,
/// so that its tool and its temporary folder are gone. Where interrupts are ignored they stay so.
/// @param work gets the token; what it returns is returned, what it throws passes through
template <class Work>
auto runInterruptibly(Work work) {
    std::stop_source source;
    if (InterruptController::areInterruptsIgnored()) return work(source.get_token());
    InterruptController interrupts([source]() mutable { source.request_stop(); });
    interrupts.start();
    const auto endIfInterrupted = [&] {
        interrupts.stop();
        if (source.stop_requested()) std::raise(SIGINT);
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
