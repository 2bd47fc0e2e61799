#include "Support/FileManager.hpp"

#include "Support/AtomicFile.hpp"
#include "Support/UniqueDescriptor.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <system_error>

namespace corvane::FileManager {
namespace fs = std::filesystem;
namespace {

/// Gives every folder below `root` its owner's permissions back, so that what is in it can be removed.
void makeFoldersWritable(const FileURL& root) {
    std::vector<FileURL> pending{root};
    while (!pending.empty()) {
        const FileURL folder = std::move(pending.back());
        pending.pop_back();
        std::error_code ignored;
        fs::permissions(folder, fs::perms::owner_all, fs::perm_options::add, ignored);
        std::error_code unreadable;
        for (fs::directory_iterator entry(folder, unreadable), end; !unreadable && entry != end;
             entry.increment(unreadable)) {
            if (fs::symlink_status(entry->path(), ignored).type() == fs::file_type::directory) {
                pending.push_back(entry->path());
            }
        }
    }
}

UniqueDescriptor openForReading(const FileURL& url) {
    UniqueDescriptor descriptor(::open(url.c_str(), O_RDONLY | O_CLOEXEC));
    if (!descriptor) throw FileError("Cannot read", url, lastSystemError());
    return descriptor;
}

} // namespace

FileURL temporaryDirectory() {
    const char* configured = std::getenv("TMPDIR");
    return configured != nullptr && *configured == '/' ? FileURL(configured) : FileURL("/tmp");
}

bool fileExists(const FileURL& url) {
    std::error_code ignored;
    return fs::exists(url, ignored);
}

bool isDirectory(const FileURL& url) {
    std::error_code ignored;
    return fs::is_directory(url, ignored);
}

void createDirectory(const FileURL& url) {
    std::error_code failure;
    fs::create_directories(url, failure);
    if (failure) throw FileError("Cannot create the folder", url, failure);
}

void createPrivateDirectory(const FileURL& url) {
    createDirectory(deletingLastPathComponent(url));
    if (::mkdir(url.c_str(), S_IRWXU) != 0 && !(errno == EEXIST && isDirectory(url))) {
        throw FileError("Cannot create the folder", url, lastSystemError());
    }
}

std::vector<FileURL> contentsOfDirectory(const FileURL& url) {
    std::error_code failure;
    std::vector<FileURL> entries;
    for (fs::directory_iterator entry(url, failure), end; !failure && entry != end; entry.increment(failure)) {
        entries.push_back(entry->path());
    }
    if (failure) throw FileError("Cannot list the folder", url, failure);
    return entries;
}

std::uint64_t fileSize(const FileURL& url) {
    std::error_code failure;
    const std::uint64_t size = fs::file_size(url, failure);
    if (failure) throw FileError("Cannot read the size of", url, failure);
    return size;
}

std::string readFile(const FileURL& url, std::uint64_t limit) {
    const UniqueDescriptor descriptor = openForReading(url);
    std::string content;
    std::array<char, 65536> buffer{};
    for (;;) {
        const ssize_t count = ::read(descriptor.get(), buffer.data(), buffer.size());
        if (count == 0) return content;
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw FileError("Cannot read", url, lastSystemError());
        content.append(buffer.data(), static_cast<std::size_t>(count));
        if (content.size() > limit)
            throw FileError("Cannot read", url, std::make_error_code(std::errc::file_too_large));
    }
}

void removeItem(const FileURL& url) {
    std::error_code failure;
    fs::remove_all(url, failure);
    if (failure == std::errc::permission_denied && fs::is_directory(fs::symlink_status(url))) {
        makeFoldersWritable(url);
        fs::remove_all(url, failure);
    }
    if (failure) throw FileError("Cannot remove", url, failure);
}

void moveItem(const FileURL& source, const FileURL& destination) {
    std::error_code failure;
    fs::rename(source, destination, failure);
    if (failure == std::errc::cross_device_link) {
        copyItem(source, destination);
        removeItem(source);
    } else if (failure) {
        throw FileError("Cannot move " + source.string() + " to", destination, failure);
    }
}

void copyItem(const FileURL& source, const FileURL& destination) {
    const UniqueDescriptor input = openForReading(source);
    struct stat status {};
    if (::fstat(input.get(), &status) != 0) throw FileError("Cannot read", source, lastSystemError());
    AtomicFile output(destination);
    output.copyContent(input.get(), source);
    output.setMode(status.st_mode & 07777U);
    output.setModificationTime(status);
    output.commit();
}

} // namespace corvane::FileManager
