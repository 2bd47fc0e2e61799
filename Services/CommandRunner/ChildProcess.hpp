#pragma once

#include "Services/CommandRunner/ChildSystem.hpp"
#include "Services/CommandRunner/Spawn.hpp"
#include "Support/UniqueDescriptor.hpp"

#include <cstdint>

namespace corvane {

/// Owns one child from its launch until it is reaped. Until then its process and group identifiers cannot pass to
/// strangers, also after its end; so signals go through the owner, from one thread.
class ChildProcess {
  public:
    /// @throws std::system_error with the system's reason; then nothing of the child is left
    explicit ChildProcess(const ChildCommand& command);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    /// A child that was not reaped is killed with its whole group.
    ~ChildProcess();

    /// The reading ends of the child's pipes.
    int standardOutput() const { return standardOutput_.get(); }
    int standardError() const { return standardError_.get(); }
    /// Polls as readable once the child has ended.
    int end() const { return end_.get(); }

    /// Sends a signal to the child and its descendants, except those that moved to other groups.
    void signalGroup(int signal) const;

    /// Waits for the child's end, once; returns its exit code, or the number of the signal that ended it.
    std::int32_t reap();

  private:
    ChildProcess(const ChildCommand& command, ChildSystem::Pipe output, ChildSystem::Pipe errors);

    pid_t pid_ = 0;
    UniqueDescriptor standardOutput_;
    UniqueDescriptor standardError_;
    UniqueDescriptor end_;
};

} // namespace corvane
