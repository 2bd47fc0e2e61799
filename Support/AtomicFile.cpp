#include "Support/AtomicFile.hpp"

#include "Support/FileError.hpp"
#include "Support/UUID.hpp"
#include "Support/WriteAll.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <vector>

namespace corvane {
namespace {

FileURL temporaryName(const FileURL& destination) {
    return deletingLastPathComponent(destination) / (".corvane-" + makeUUID() + ".partial");
}

/// Lets the kernel move the bytes, by sharing blocks where the file system can. It moves as much as it is able to and
/// advances both positions.
void copyWithinKernel([[maybe_unused]] int input, [[maybe_unused]] int output) {
#ifdef __linux__
    ssize_t count = 0;
    do {
        count = ::copy_file_range(input, nullptr, output, nullptr, std::size_t{1} << 30, 0);
    } while (count > 0 || (count < 0 && errno == EINTR));
#endif
}

} // namespace

AtomicFile::AtomicFile(FileURL destination)
    : destination_(std::move(destination)),
      temporary_(temporaryName(destination_)),
      descriptor_(::open(temporary_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666)) {
    if (!descriptor_) throw FileError("Cannot create", destination_, lastSystemError());
}

AtomicFile::~AtomicFile() {
    if (!committed_) ::unlink(temporary_.c_str());
}

void AtomicFile::write(std::string_view bytes) {
    if (!writeAll(descriptor_.get(), bytes)) throw FileError("Cannot write", destination_, lastSystemError());
}

void AtomicFile::copyContent(int input, const FileURL& inputName) {
    copyWithinKernel(input, descriptor_.get());
    std::vector<char> buffer(std::size_t{1} << 18);
    for (;;) {
        const ssize_t count = ::read(input, buffer.data(), buffer.size());
        if (count == 0) return;
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw FileError("Cannot read", inputName, lastSystemError());
        write({buffer.data(), static_cast<std::size_t>(count)});
    }
}

void AtomicFile::setMode(mode_t mode) {
    if (::fchmod(descriptor_.get(), mode) != 0)
        throw FileError("Cannot set the mode of", destination_, lastSystemError());
}

void AtomicFile::setModificationTime(const struct stat& like) {
#ifdef __APPLE__
    const timespec times[2] = {{0, UTIME_OMIT}, like.st_mtimespec};
#else
    const timespec times[2] = {{0, UTIME_OMIT}, like.st_mtim};
#endif
    if (::futimens(descriptor_.get(), times) != 0) {
        throw FileError("Cannot set the time of", destination_, lastSystemError());
    }
}

void AtomicFile::commit() {
    // Some file systems report a full disk only when the file is closed.
    const int descriptor = ::dup(descriptor_.get());
    descriptor_.reset();
    if (descriptor < 0 || ::close(descriptor) != 0) throw FileError("Cannot write", destination_, lastSystemError());
    if (std::rename(temporary_.c_str(), destination_.c_str()) != 0) {
        throw FileError("Cannot place", destination_, lastSystemError());
    }
    committed_ = true;
}

} // namespace corvane
