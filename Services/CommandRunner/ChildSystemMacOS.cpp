#include "Services/CommandRunner/ChildSystem.hpp"
#include "Support/FileError.hpp"

#include <fcntl.h>
#include <sys/event.h>
#include <unistd.h>

namespace corvane::ChildSystem {
namespace {

bool change(int queue, std::uintptr_t identifier, std::int16_t filter, std::uint16_t flags, std::uint32_t filterFlags) {
    struct kevent event;
    EV_SET(&event, identifier, filter, flags, filterFlags, 0, nullptr);
    return ::kevent(queue, &event, 1, nullptr, 0, nullptr) == 0;
}

} // namespace

Pipe makePipe() {
    int ends[2];
    if (::pipe(ends) != 0) throw std::system_error(lastSystemError());
    Pipe pipe{UniqueDescriptor(ends[0]), UniqueDescriptor(ends[1])};
    for (const int end : ends) {
        if (::fcntl(end, F_SETFD, FD_CLOEXEC) != 0) throw std::system_error(lastSystemError());
    }
    return pipe;
}

int closeOtherDescriptors(posix_spawn_file_actions_t&, short& flags) {
    flags |= POSIX_SPAWN_CLOEXEC_DEFAULT;
    return 0;
}

UniqueDescriptor endOfChild(pid_t child) {
    UniqueDescriptor queue(::kqueue());
    if (!queue) throw std::system_error(lastSystemError());
    if (change(queue.get(), static_cast<std::uintptr_t>(child), EVFILT_PROC, EV_ADD, NOTE_EXIT)) return queue;
    // A child that has ended already cannot be watched any more: the queue gets an event of its own instead.
    if (errno == ESRCH && change(queue.get(), 0, EVFILT_USER, EV_ADD, 0) &&
        change(queue.get(), 0, EVFILT_USER, 0, NOTE_TRIGGER)) {
        return queue;
    }
    throw std::system_error(lastSystemError());
}

} // namespace corvane::ChildSystem
