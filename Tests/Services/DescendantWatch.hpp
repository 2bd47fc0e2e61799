#pragma once

#include "Tests/Services/ProcessState.hpp"

#include <sys/prctl.h>

namespace corvane::TestSupport {

/// While one lives, orphans among this process's descendants become its own children, so that it can tell whether any
/// is left. A feature of Linux.
class DescendantWatch {
  public:
    DescendantWatch() { ::prctl(PR_SET_CHILD_SUBREAPER, 1); }
    DescendantWatch(const DescendantWatch&) = delete;
    DescendantWatch& operator=(const DescendantWatch&) = delete;
    ~DescendantWatch() { ::prctl(PR_SET_CHILD_SUBREAPER, 0); }

    /// Reaps orphans that end; false when one goes on.
    static bool becomesAlone() {
        return becomesTrue([] {
            while (::waitpid(-1, nullptr, WNOHANG) > 0) {
            }
            return isChildless();
        });
    }
};

} // namespace corvane::TestSupport
