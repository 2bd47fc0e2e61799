#include "Platform/Formats/ExtractionFolder.hpp"

#include "Platform/Formats/EntryName.hpp"
#include "Platform/Formats/ExtendedAttributes/ExtendedAttributes.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Support/CancellationError.hpp"
#include "Support/FileError.hpp"
#include "Support/WriteAll.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>

namespace corvane {
namespace {

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr std::uint32_t defaultFileMode = 0644;
constexpr std::uint32_t defaultFolderMode = 0755;

void require(bool success, const char* action, const FileURL& url) {
    if (!success) throw FileError(action, url, lastSystemError());
}

/// Leaves the time of access as it is.
std::array<struct timespec, 2> times(const struct timespec& modified) { return {{{0, UTIME_OMIT}, modified}}; }

/// Sets times first: the mode may forbid it afterwards.
void applyAttributes(int descriptor, const FileURL& url, const FileAttributes& attributes, std::uint32_t defaultMode) {
    if (attributes.modificationTime) {
        require(::futimens(descriptor, times(*attributes.modificationTime).data()) == 0, "Cannot set the time of", url);
    }
    require(::fchmod(descriptor, attributes.mode.value_or(defaultMode)) == 0, "Cannot set the mode of", url);
}

/// Opens an item to its owner, who may set attributes only then. Companions take the rest of their modes from it.
std::uint32_t openedMode(std::uint32_t mode) { return (mode & 0777U) | S_IRWXU; }

} // namespace

bool keepsReserve(std::uint64_t total, std::uint64_t available, std::uint64_t needed) {
    return needed <= available && available - needed >= total / 20;
}

ExtractionFolder::ExtractionFolder(FileURL root, std::stop_token stop)
    : root_(std::move(root)),
      stop_(std::move(stop)),
      rootDescriptor_(::open(root_.c_str(), folderFlags)),
      buffer_(sourceBufferSize) {
    require(static_cast<bool>(rootDescriptor_), "Cannot open the folder", root_);
}

UniqueDescriptor ExtractionFolder::openFolder(const std::string& path, bool create) {
    UniqueDescriptor folder(::fcntl(rootDescriptor_.get(), F_DUPFD_CLOEXEC, 0));
    require(static_cast<bool>(folder), "Cannot open the folder", root_);
    for (std::size_t start = 0; start < path.size();) {
        const std::size_t end = std::min(path.find('/', start), path.size());
        const std::string name = path.substr(start, end - start);
        UniqueDescriptor next(::openat(folder.get(), name.c_str(), folderFlags));
        if (!next && create && errno == ENOENT) {
            require(::mkdirat(folder.get(), name.c_str(), S_IRWXU) == 0, "Cannot create the folder",
                    url(path.substr(0, end)));
            folders_.try_emplace(path.substr(0, end));
            next = UniqueDescriptor(::openat(folder.get(), name.c_str(), folderFlags));
        }
        require(static_cast<bool>(next), "Cannot open the folder", url(path.substr(0, end)));
        folder = std::move(next);
        start = end + 1;
    }
    return folder;
}

ExtractionFolder::Place ExtractionFolder::place(const std::string& path) {
    checkCancellation(stop_);
    EntryName::checkPath(path, root_.string());
    const std::size_t slash = path.rfind('/');
    const std::string parent = slash == std::string::npos ? "" : path.substr(0, slash);
    if (!current_ || parent != currentPath_) {
        current_ = openFolder(parent, true);
        currentPath_ = parent;
    }
    return {current_.get(), slash == std::string::npos ? path : path.substr(slash + 1)};
}

ExtractionFolder::Place ExtractionFolder::newPlace(const std::string& path, std::uint64_t size) {
    requireSpace(size);
    return place(path);
}

void ExtractionFolder::addFolder(const std::string& path, const FileAttributes& attributes) {
    if (path != ".") {
        const Place target = newPlace(path);
        if (::mkdirat(target.folder, target.name.c_str(), S_IRWXU) != 0) {
            struct stat status {};
            const bool exists = errno == EEXIST &&
                                ::fstatat(target.folder, target.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                                S_ISDIR(status.st_mode);
            if (!exists)
                throw FileError("Cannot create the folder", url(path), std::make_error_code(std::errc::file_exists));
        }
    }
    if (!attributes.extended.empty()) {
        const UniqueDescriptor folder = openFolder(path == "." ? "" : path, false);
        const std::uint32_t mode = openedMode(attributes.mode.value_or(defaultFolderMode));
        if (path != ".") require(::fchmod(folder.get(), mode) == 0, "Cannot set the mode of", url(path));
        setExtended(path, attributes);
    }
    folders_.insert_or_assign(path == "." ? "" : path,
                              FileAttributes{.mode = attributes.mode, .modificationTime = attributes.modificationTime});
}

/// The path leads through no link: its folders have just been opened one by one.
void ExtractionFolder::setExtended(const std::string& path, const FileAttributes& attributes) const {
    if (path != ".") return ExtendedAttributes::set(url(path), attributes.extended);
    for (const auto& [name, value] : attributes.extended) {
        if (isBlankAttribute(name, value)) continue;
        ::fsetxattr(rootDescriptor_.get(), ("user." + name).c_str(), value.data(), value.size(), 0);
    }
}

void ExtractionFolder::addFile(const std::string& path, const FileAttributes& attributes, std::uint64_t size,
                               ByteSource& content) {
    const Place target = newPlace(path, size);
    constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    const UniqueDescriptor file(::openat(target.folder, target.name.c_str(), flags, S_IRUSR | S_IWUSR));
    require(static_cast<bool>(file), "Cannot create", url(path));
    write(file.get(), url(path), size, content);
    if (!attributes.extended.empty()) {
        const std::uint32_t mode = openedMode(attributes.mode.value_or(defaultFileMode));
        require(::fchmod(file.get(), mode) == 0, "Cannot set the mode of", url(path));
        setExtended(path, attributes);
    }
    applyAttributes(file.get(), url(path), attributes, defaultFileMode);
}

void ExtractionFolder::write(int descriptor, const FileURL& name, std::uint64_t size, ByteSource& content) {
    while (const std::size_t count = content.read(buffer_)) {
        checkCancellation(stop_);
        if (count > size) throw FormatError("The content of " + name.string() + " is longer than its size");
        // Others write at the same time.
        requireSpace(size);
        size -= count;
        require(writeAll(descriptor, {buffer_.data(), count}), "Cannot write", name);
    }
    if (size != 0) throw FormatError("The content of " + name.string() + " is shorter than its size");
}

void ExtractionFolder::requireSpace(std::uint64_t size) const {
    struct statvfs status {};
    require(::fstatvfs(rootDescriptor_.get(), &status) == 0, "Cannot read the free space at", root_);
    // Some file systems have no fixed number of files, and say 0.
    const bool holdsOneMore = status.f_files == 0 || keepsReserve(status.f_files, status.f_favail, 1);
    if (holdsOneMore && keepsReserve(status.f_blocks * status.f_frsize, status.f_bavail * status.f_frsize, size))
        return;
    throw FileError("Cannot extract to", root_, std::make_error_code(std::errc::no_space_on_device));
}

void ExtractionFolder::addSymbolicLink(const std::string& path, const std::string& target,
                                       const FileAttributes& attributes) {
    const Place link = newPlace(path);
    require(::symlinkat(target.c_str(), link.folder, link.name.c_str()) == 0, "Cannot create the link", url(path));
    if (!attributes.extended.empty()) setExtended(path, attributes);
    if (!attributes.modificationTime) return;
    require(::utimensat(link.folder, link.name.c_str(), times(*attributes.modificationTime).data(),
                        AT_SYMLINK_NOFOLLOW) == 0,
            "Cannot set the time of", url(path));
}

void ExtractionFolder::addHardLink(const std::string& path, const std::string& existing) {
    const std::size_t slash = existing.rfind('/');
    EntryName::checkPath(existing, root_.string());
    const UniqueDescriptor folder = openFolder(slash == std::string::npos ? "" : existing.substr(0, slash), false);
    const std::string name = existing.substr(slash == std::string::npos ? 0 : slash + 1);
    const Place link = place(path);
    require(::linkat(folder.get(), name.c_str(), link.folder, link.name.c_str(), 0) == 0, "Cannot create the link",
            url(path));
}

UniqueDescriptor ExtractionFolder::openFile(const std::string& path) {
    const Place file = place(path);
    UniqueDescriptor descriptor(::openat(file.folder, file.name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    require(static_cast<bool>(descriptor), "Cannot read", url(path));
    return descriptor;
}

void ExtractionFolder::finish() {
    // What is in a folder comes before it, since its mode may close it to us.
    for (auto each = folders_.rbegin(); each != folders_.rend(); ++each) {
        const auto& [path, attributes] = *each;
        const UniqueDescriptor folder = openFolder(path, false);
        applyAttributes(folder.get(), url(path), attributes, defaultFolderMode);
    }
}

} // namespace corvane
