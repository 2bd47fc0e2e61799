#include "Sources/CorvaneCLIKit/CLIApplication.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>

namespace {

/// Undoes what a careless parent may have left: without a standard stream a file that we open would take its place, and
/// children whose end is ignored could not be waited for.
void prepareProcess() {
    int descriptor = -1;
    do {
        descriptor = ::open("/dev/null", O_RDWR);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor >= 0) ::close(descriptor);
    std::signal(SIGCHLD, SIG_DFL);
    // A reader of our output that goes away, or a file for it that may not grow, must not keep a job from its clean-up.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

} // namespace

int main(int count, char** arguments) {
    prepareProcess();
    const corvane::CLIApplication application(corvane::CLIStreams::standard());
    return application.run({arguments + 1, arguments + count});
}
