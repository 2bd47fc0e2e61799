#pragma once

#include "Support/FileURL.hpp"

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace corvane {

/// What a child is launched with.
struct ChildCommand {
    FileURL executable;
    /// The first one is the name by which the executable is called.
    std::vector<std::string> arguments;
    /// Absent: this process's.
    std::optional<FileURL> currentDirectory;
};

/// Starts a child that writes to the two descriptors, and returns when it runs the executable. The null device is its
/// standard input; it has no other descriptor, a process group of its own, default signal dispositions, an empty signal
/// mask and this process's environment.
/// @throws std::system_error with the system's reason when the executable cannot be run; then there is no child
pid_t spawn(const ChildCommand& command, int standardOutput, int standardError);

} // namespace corvane
