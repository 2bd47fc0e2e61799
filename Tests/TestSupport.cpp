#include "Tests/TestSupport.hpp"

#include "Support/FileManager.hpp"
#include "Support/UUID.hpp"
#include "Support/UniqueDescriptor.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>

namespace corvane::TestSupport {
namespace {

/// The child's side of `run`: never returns.
[[noreturn]] void execute(const std::vector<std::string>& command, const RunOptions& options, const FileURL& streams) {
    const auto redirect = [](const FileURL& url, int flags, int target) {
        const int descriptor = ::open(url.c_str(), flags, 0644);
        if (descriptor < 0 || ::dup2(descriptor, target) < 0) ::_exit(126);
        ::close(descriptor);
    };
    redirect(streams / "in", O_RDONLY, STDIN_FILENO);
    redirect(streams / "out", O_WRONLY | O_CREAT | O_TRUNC, STDOUT_FILENO);
    redirect(streams / "err", O_WRONLY | O_CREAT | O_TRUNC, STDERR_FILENO);
    if (options.folder && ::chdir(options.folder->c_str()) != 0) ::_exit(126);
    for (const std::string& setting : options.environment) ::putenv(::strdup(setting.c_str()));
    std::vector<char*> arguments;
    for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    ::execvp(arguments[0], arguments.data());
    ::_exit(127);
}

} // namespace

Sandbox::Sandbox() : url_(FileManager::temporaryDirectory() / ("test-" + makeUUID())) {
    FileManager::createPrivateDirectory(url_);
}

Sandbox::~Sandbox() {
    try {
        FileManager::removeItem(url_);
    } catch (const std::exception& error) {
        ADD_FAILURE() << error.what();
    }
}

FileURL Sandbox::write(std::string_view name, std::string_view content) const {
    const FileURL url = url_ / name;
    FileManager::createDirectory(deletingLastPathComponent(url));
    std::ofstream file(url, std::ios::binary);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    if (!file) ADD_FAILURE() << "cannot write " << url;
    return url;
}

FileURL Sandbox::writeScript(std::string_view name, std::string_view body) const {
    const FileURL url = write(name, "#!/bin/sh\n" + std::string(body));
    ::chmod(url.c_str(), 0755);
    return url;
}

std::string read(const FileURL& url) { return FileManager::readFile(url, std::uint64_t{1} << 32); }

std::optional<FileURL> samples() {
    const FileURL folder = CORVANE_SAMPLES_FOLDER;
    if (folder.empty() || !FileManager::isDirectory(folder)) return std::nullopt;
    return folder;
}

FileURL program(std::string_view relativePath) { return FileURL(CORVANE_BINARY_FOLDER) / relativePath; }

FileURL source(std::string_view relativePath) { return FileURL(CORVANE_SOURCE_FOLDER) / relativePath; }

Outcome run(const std::vector<std::string>& command, const RunOptions& options) {
    const Sandbox streams;
    streams.write("in", options.input);
    const pid_t child = ::fork();
    if (child == 0) execute(command, options, streams.url());
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return {.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status),
            .output = read(streams / "out"),
            .errors = read(streams / "err")};
}

} // namespace corvane::TestSupport
