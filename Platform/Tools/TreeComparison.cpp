#include "Platform/Tools/TreeComparison.hpp"

#include "Support/FileError.hpp"
#include "Support/UniqueDescriptor.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <memory>

namespace corvane::Tools {
namespace {

/// What a message calls a file.
std::string kind(const struct stat& status) {
    switch (status.st_mode & S_IFMT) {
    case S_IFREG:
        return status.st_size == 0 ? "regular empty file" : "regular file";
    case S_IFDIR:
        return "directory";
    case S_IFLNK:
        return "symbolic link";
    case S_IFIFO:
        return "fifo";
    case S_IFSOCK:
        return "socket";
    case S_IFCHR:
        return "character special file";
    case S_IFBLK:
        return "block special file";
    default:
        return "weird file";
    }
}

bool isDirectory(const struct stat& status) { return S_ISDIR(status.st_mode); }

std::string joined(const std::string& folder, const std::string& name) {
    return folder.substr(0, folder.find_last_not_of('/') + 1) + "/" + name;
}

std::string lastComponent(const std::string& path) {
    const std::size_t end = path.find_last_not_of('/') + 1;
    const std::size_t slash = path.rfind('/', end == 0 ? 0 : end - 1);
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::optional<struct stat> statusOf(const std::string& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) return std::nullopt;
    return status;
}

} // namespace

void TreeComparison::differ(const std::string& text) {
    result_ = std::max(result_, Result::different);
    reportDifference_(text);
}

std::nullopt_t TreeComparison::fail(const std::string& path) {
    const std::string reason = lastSystemError().message();
    result_ = Result::trouble;
    reportTrouble_(path + ": " + reason);
    return std::nullopt;
}

std::optional<std::vector<std::string>> TreeComparison::names(const std::string& folder) {
    struct Close {
        void operator()(DIR* open) const { ::closedir(open); }
    };
    const std::unique_ptr<DIR, Close> open(::opendir(folder.c_str()));
    if (!open) return fail(folder);
    std::vector<std::string> result;
    for (errno = 0; const dirent* entry = ::readdir(open.get()); errno = 0) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") result.push_back(name);
    }
    if (errno != 0) return fail(folder);
    std::sort(result.begin(), result.end());
    return result;
}

std::optional<std::string> TreeComparison::linkText(const std::string& link) {
    std::array<char, PATH_MAX> text{};
    const ssize_t length = ::readlink(link.c_str(), text.data(), text.size());
    if (length < 0) return fail(link);
    return std::string(text.data(), static_cast<std::size_t>(length));
}

std::optional<UniqueDescriptor> TreeComparison::opened(const std::string& file) {
    // What has become a fifo in the meantime must not stop the comparison.
    UniqueDescriptor descriptor(::open(file.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!descriptor) return fail(file);
    return descriptor;
}

/// Fewer bytes than the buffer holds only at the end of the file.
std::optional<std::string_view> TreeComparison::filled(std::vector<char>& buffer, int descriptor,
                                                       const std::string& file) {
    std::size_t size = 0;
    while (size < buffer.size()) {
        const ssize_t count = ::read(descriptor, buffer.data() + size, buffer.size() - size);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return fail(file);
        if (count == 0) break;
        size += static_cast<std::size_t>(count);
    }
    return std::string_view(buffer.data(), size);
}

TreeComparison::Result TreeComparison::compare(const std::string& left, const std::string& right) {
    const auto leftStatus = statusOf(left);
    const auto rightStatus = statusOf(right);
    const bool mixed = leftStatus && rightStatus && isDirectory(*leftStatus) != isDirectory(*rightStatus);
    comparePair(mixed && isDirectory(*leftStatus) ? joined(left, lastComponent(right)) : left,
                mixed && isDirectory(*rightStatus) ? joined(right, lastComponent(left)) : right);
    while (!folders_.empty()) compareNext();
    return result_;
}

void TreeComparison::compareNext() {
    Folder& folder = folders_.back();
    const bool hasLeft = folder.nextLeft < folder.leftNames.size();
    const bool hasRight = folder.nextRight < folder.rightNames.size();
    if (!hasLeft && !hasRight) {
        folders_.pop_back();
        return;
    }
    const int order = !hasLeft    ? 1
                      : !hasRight ? -1
                                  : folder.leftNames[folder.nextLeft].compare(folder.rightNames[folder.nextRight]);
    if (order < 0) return differ("Only in " + folder.left + ": " + folder.leftNames[folder.nextLeft++]);
    if (order > 0) return differ("Only in " + folder.right + ": " + folder.rightNames[folder.nextRight++]);
    const std::string& name = folder.leftNames[folder.nextLeft++];
    ++folder.nextRight;
    comparePair(joined(folder.left, name), joined(folder.right, name));
}

void TreeComparison::comparePair(const std::string& left, const std::string& right) {
    const auto leftStatus = statusOf(left);
    if (!leftStatus) fail(left);
    const auto rightStatus = statusOf(right);
    if (!rightStatus) fail(right);
    if (leftStatus && rightStatus) compareExisting(left, *leftStatus, right, *rightStatus);
}

void TreeComparison::compareExisting(const std::string& left, const struct stat& leftStatus, const std::string& right,
                                     const struct stat& rightStatus) {
    if (leftStatus.st_dev == rightStatus.st_dev && leftStatus.st_ino == rightStatus.st_ino) return;
    const mode_t type = leftStatus.st_mode & S_IFMT;
    if (type == (rightStatus.st_mode & S_IFMT)) {
        if (type == S_IFDIR) return enter(left, right);
        if (type == S_IFLNK) return compareLinks(left, right);
        if (type == S_IFREG) {
            if (leftStatus.st_size == rightStatus.st_size) return compareFiles(left, right);
            return differ("Files " + left + " and " + right + " differ");
        }
        const bool isDevice = type == S_IFCHR || type == S_IFBLK;
        if (isDevice && leftStatus.st_rdev == rightStatus.st_rdev) return;
    }
    differ("File " + left + " is a " + kind(leftStatus) + " while file " + right + " is a " + kind(rightStatus));
}

void TreeComparison::enter(const std::string& left, const std::string& right) {
    auto leftNames = names(left);
    auto rightNames = names(right);
    if (!leftNames || !rightNames) return;
    folders_.push_back({left, right, *std::move(leftNames), *std::move(rightNames)});
}

void TreeComparison::compareLinks(const std::string& left, const std::string& right) {
    const auto leftText = linkText(left);
    const auto rightText = linkText(right);
    if (leftText && rightText && leftText != rightText) differ("Symbolic links " + left + " and " + right + " differ");
}

void TreeComparison::compareFiles(const std::string& left, const std::string& right) {
    const auto leftFile = opened(left);
    const auto rightFile = opened(right);
    if (!leftFile || !rightFile) return;
    while (true) {
        const auto leftBytes = filled(left_, leftFile->get(), left);
        const auto rightBytes = filled(right_, rightFile->get(), right);
        if (!leftBytes || !rightBytes) return;
        if (leftBytes != rightBytes) return differ("Files " + left + " and " + right + " differ");
        if (leftBytes->size() < left_.size()) return;
    }
}

} // namespace corvane::Tools
