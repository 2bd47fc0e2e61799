#include "Services/PackagingPipeline/Gates.hpp"

#include "Support/CancellationError.hpp"

namespace corvane {

void Gate::wait(const std::stop_token& stop) const {
    if (!signals_.next(stop)) throw CancellationError();
    checkCancellation(stop);
}

} // namespace corvane
