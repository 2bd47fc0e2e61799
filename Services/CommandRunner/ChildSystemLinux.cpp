#include "Services/CommandRunner/ChildSystem.hpp"
#include "Support/FileError.hpp"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace corvane::ChildSystem {

Pipe makePipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(lastSystemError());
    return {UniqueDescriptor(ends[0]), UniqueDescriptor(ends[1])};
}

int closeOtherDescriptors(posix_spawn_file_actions_t& actions, short&) {
    return ::posix_spawn_file_actions_addclosefrom_np(&actions, 3);
}

UniqueDescriptor endOfChild(pid_t child) {
    // Older C libraries have no function for this call. The descriptor is closed on exec by itself.
    UniqueDescriptor descriptor(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
    if (!descriptor) throw std::system_error(lastSystemError());
    return descriptor;
}

} // namespace corvane::ChildSystem
