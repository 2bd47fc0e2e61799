#include "Platform/Trust/PrivateFiles.hpp"

#include "Platform/Formats/FormatError.hpp"
#include "Support/AtomicFile.hpp"
#include "Support/FileError.hpp"
#include "Support/FileManager.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace corvane::PrivateFiles {
namespace {

/// What the system calls the home of users without one. Nothing is found below, and none of them can create anything.
constexpr const char* homeOfNobody = "/nonexistent";

} // namespace

FileURL baseFolder(const char* variable, const std::string& otherwise) {
    const char* configured = std::getenv(variable);
    const bool isSet = configured != nullptr && configured[0] == '/';
    if (isSet) return configured;
    const FileURL folder = expandingTilde(otherwise);
    return folder.string().starts_with('~') ? FileURL(homeOfNobody) : folder;
}

void requireClosed(const FileURL& url, mode_t forbidden) {
    struct stat status {};
    if (::stat(url.c_str(), &status) != 0) throw FileError("Cannot examine", url, lastSystemError());
    if (status.st_uid != ::geteuid() && status.st_uid != 0) {
        throw FormatError(url.string() + " belongs to another user");
    }
    if ((status.st_mode & forbidden) == 0) return;
    throw FormatError(url.string() + " is open to other users; close it with: chmod go= '" + url.string() + "'");
}

std::vector<FileURL> list(const FileURL& folder, std::string_view extension, mode_t forbidden) {
    if (!FileManager::isDirectory(folder)) return {};
    requireClosed(folder, forbidden);
    std::vector<FileURL> found = FileManager::contentsOfDirectory(folder);
    std::erase_if(found, [&](const FileURL& url) { return pathExtension(url) != extension; });
    std::sort(found.begin(), found.end());
    for (const FileURL& url : found) requireClosed(url, forbidden);
    return found;
}

void write(const FileURL& url, std::string_view content) {
    FileManager::createPrivateDirectory(deletingLastPathComponent(url));
    AtomicFile file(url);
    file.setMode(0600);
    file.write(content);
    file.commit();
}

UniqueDescriptor lock(const FileURL& folder) {
    const FileURL url = folder / "lock";
    UniqueDescriptor descriptor(::open(url.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!descriptor) throw FileError("Cannot open", url, lastSystemError());
    while (::flock(descriptor.get(), LOCK_EX) != 0) {
        if (errno != EINTR) throw FileError("Cannot lock", url, lastSystemError());
    }
    return descriptor;
}

} // namespace corvane::PrivateFiles
