#include "Support/FileManager.hpp"

#include "Support/AtomicFile.hpp"
#include "Support/UniqueDescriptor.hpp"
#include "Support/WriteAll.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <system_error>

namespace corvane::FileManager {
namespace fs = std::filesystem;
namespace {

/// Gives a folder, and every one below, its owner's permissions back, so that what is in it can be removed. Goes by
/// descriptors: a path may be longer than the system takes. The system's number of open files bounds the depth.
void makeFoldersWritable(int parent, const char* name) {
    struct Close {
        void operator()(DIR* open) const { ::closedir(open); }
    };
    struct stat status {};
    if (::fstatat(parent, name, &status, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISDIR(status.st_mode)) return;
    if (::fchmodat(parent, name, (status.st_mode & 07777U) | S_IRWXU, 0) != 0) return;
    const int descriptor = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (descriptor < 0) return;
    const std::unique_ptr<DIR, Close> folder(::fdopendir(descriptor));
    if (!folder) {
        ::close(descriptor);
        return;
    }
    while (const dirent* entry = ::readdir(folder.get())) {
        const std::string_view child = entry->d_name;
        if (child != "." && child != "..") makeFoldersWritable(::dirfd(folder.get()), entry->d_name);
    }
}

UniqueDescriptor openForReading(const FileURL& url) {
    UniqueDescriptor descriptor(::open(url.c_str(), O_RDONLY | O_CLOEXEC));
    if (!descriptor) throw FileError("Cannot read", url, lastSystemError());
    return descriptor;
}

constexpr std::size_t bufferSize = std::size_t{1} << 18;

/// Fills the buffer as far as the file lasts.
std::size_t readFully(int descriptor, const FileURL& name, std::vector<char>& buffer) {
    std::size_t filled = 0;
    while (filled < buffer.size()) {
        const ssize_t count = ::read(descriptor, buffer.data() + filled, buffer.size() - filled);
        if (count == 0) break;
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw FileError("Cannot read", name, lastSystemError());
        filled += static_cast<std::size_t>(count);
    }
    return filled;
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

struct stat itemStatus(const FileURL& url) {
    struct stat status {};
    if (::lstat(url.c_str(), &status) != 0) throw FileError("Cannot read", url, lastSystemError());
    return status;
}

std::string linkTarget(const FileURL& url) {
    std::error_code failure;
    std::string target = fs::read_symlink(url, failure).string();
    if (failure) throw FileError("Cannot read the link", url, failure);
    return target;
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
    std::vector<char> buffer(bufferSize);
    while (const std::size_t count = readFully(descriptor.get(), url, buffer)) {
        content.append(buffer.data(), count);
        if (content.size() > limit)
            throw FileError("Cannot read", url, std::make_error_code(std::errc::file_too_large));
    }
    return content;
}

bool haveSameContent(const FileURL& left, const FileURL& right) {
    const UniqueDescriptor leftFile = openForReading(left);
    const UniqueDescriptor rightFile = openForReading(right);
    std::vector<char> leftBytes(bufferSize);
    std::vector<char> rightBytes(bufferSize);
    for (;;) {
        const std::size_t count = readFully(leftFile.get(), left, leftBytes);
        if (count != readFully(rightFile.get(), right, rightBytes)) return false;
        if (count == 0) return true;
        if (std::memcmp(leftBytes.data(), rightBytes.data(), count) != 0) return false;
    }
}

void writeFile(const FileURL& url, std::string_view content) {
    const UniqueDescriptor descriptor(::open(url.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (!descriptor || !writeAll(descriptor.get(), content)) throw FileError("Cannot write", url, lastSystemError());
}

void writeFileAtomically(const FileURL& url, std::string_view content) {
    AtomicFile output(url);
    output.write(content);
    output.commit();
}

void removeItem(const FileURL& url) {
    std::error_code failure;
    fs::remove_all(url, failure);
    if (failure == std::errc::permission_denied && fs::is_directory(fs::symlink_status(url))) {
        makeFoldersWritable(AT_FDCWD, url.c_str());
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
