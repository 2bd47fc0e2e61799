#pragma once

#include <functional>
#include <stop_token>

namespace corvane::Tools {

/// Runs a tool's work so that SIGTERM, SIGINT and SIGHUP request its stop instead of ending the process. Work that
/// sees the request throws CancellationError (see `checkCancellation`); once the stack is unwound, and with it every
/// temporary file and folder gone, the process ends by the signal that came. Work that is complete by then keeps its
/// status. Signals that the caller has set to be ignored stay ignored.
///
/// To be called before the process has other threads: they must inherit the mask that is set here.
int runUntilTerminated(const std::function<int(const std::stop_token& stop)>& work);

} // namespace corvane::Tools
