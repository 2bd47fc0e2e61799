#pragma once

#include "Support/UniqueDescriptor.hpp"

#include <spawn.h>
#include <sys/types.h>

/// What each system does its own way about children. Failures are `std::system_error`.
namespace corvane::ChildSystem {

struct Pipe {
    UniqueDescriptor readingEnd;
    UniqueDescriptor writingEnd;
};

/// Both ends are closed in every child.
Pipe makePipe();

/// Lets a child begin with the descriptors 0, 1 and 2 alone. Returns an error number, or 0.
int closeOtherDescriptors(posix_spawn_file_actions_t& actions, short& flags);

/// A descriptor that polls as readable once this child of ours has ended. It does not reap.
UniqueDescriptor endOfChild(pid_t child);

} // namespace corvane::ChildSystem
