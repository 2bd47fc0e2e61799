#include "Services/CommandRunner/Spawn.hpp"

#include "Services/CommandRunner/ChildSystem.hpp"
#include "Support/FileError.hpp"
#include "Support/UniqueDescriptor.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <csignal>

extern char** environ; // NOLINT(readability-redundant-declaration): no header of macOS has it

namespace corvane {
namespace {

/// The functions of the spawn family return their error number.
void check(int error) {
    if (error != 0) throw std::system_error(error, std::generic_category());
}

struct FileActions {
    posix_spawn_file_actions_t value;

    FileActions() { check(::posix_spawn_file_actions_init(&value)); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;
    ~FileActions() { ::posix_spawn_file_actions_destroy(&value); }
};

struct Attributes {
    posix_spawnattr_t value;

    Attributes() { check(::posix_spawnattr_init(&value)); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;
    ~Attributes() { ::posix_spawnattr_destroy(&value); }
};

/// A copy of a descriptor that lies above the three standard ones: in a process that was started with one of these
/// closed, a pipe's end may be just where the child needs its own.
UniqueDescriptor aboveStandardStreams(int descriptor) {
    UniqueDescriptor copy(::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!copy) throw std::system_error(lastSystemError());
    return copy;
}

void setDescriptors(FileActions& actions, int standardOutput, int standardError) {
    check(::posix_spawn_file_actions_addopen(&actions.value, STDIN_FILENO, "/dev/null", O_RDONLY, 0));
    check(::posix_spawn_file_actions_adddup2(&actions.value, standardOutput, STDOUT_FILENO));
    check(::posix_spawn_file_actions_adddup2(&actions.value, standardError, STDERR_FILENO));
}

/// Returns the flag that makes each of the settings count.
short setSignals(Attributes& attributes) {
    sigset_t all, none;
    ::sigfillset(&all);
    ::sigemptyset(&none);
    check(::posix_spawnattr_setsigdefault(&attributes.value, &all));
    check(::posix_spawnattr_setsigmask(&attributes.value, &none));
    check(::posix_spawnattr_setpgroup(&attributes.value, 0));
    return POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP;
}

/// The arguments as the system takes them: ended by zero bytes, so none may hold one.
std::vector<char*> argumentVector(const std::vector<std::string>& arguments) {
    std::vector<char*> pointers;
    for (const std::string& argument : arguments) {
        if (argument.find('\0') != std::string::npos) check(EINVAL);
        pointers.push_back(const_cast<char*>(argument.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

} // namespace

pid_t spawn(const ChildCommand& command, int standardOutput, int standardError) {
    const UniqueDescriptor output = aboveStandardStreams(standardOutput);
    const UniqueDescriptor errors = aboveStandardStreams(standardError);
    FileActions actions;
    Attributes attributes;
    short flags = setSignals(attributes);
    setDescriptors(actions, output.get(), errors.get());
    check(ChildSystem::closeOtherDescriptors(actions.value, flags));
    if (command.currentDirectory) {
        check(::posix_spawn_file_actions_addchdir_np(&actions.value, command.currentDirectory->c_str()));
    }
    check(::posix_spawnattr_setflags(&attributes.value, flags));
    const std::vector<char*> arguments = argumentVector(command.arguments);
    pid_t child = 0;
    check(::posix_spawn(&child, command.executable.c_str(), &actions.value, &attributes.value, arguments.data(),
                        environ));
    return child;
}

} // namespace corvane
