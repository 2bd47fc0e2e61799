#include "Support/AtomicFile.hpp"

#include "Support/ContentCopy.hpp"
#include "Support/FileError.hpp"
#include "Support/UUID.hpp"
#include "Support/WriteAll.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

namespace corvane {
namespace {

FileURL temporaryName(const FileURL& destination) {
    return deletingLastPathComponent(destination) / (".corvane-" + makeUUID() + ".partial");
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
    corvane::copyContent(input, inputName, descriptor_.get(), destination_);
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
    if (::close(descriptor_.release()) != 0) throw FileError("Cannot write", destination_, lastSystemError());
    if (std::rename(temporary_.c_str(), destination_.c_str()) != 0) {
        throw FileError("Cannot place", destination_, lastSystemError());
    }
    committed_ = true;
}

} // namespace corvane
