#include "Support/AtomicFolder.hpp"

#include "Support/FileError.hpp"
#include "Support/FileManager.hpp"
#include "Support/UUID.hpp"

#include <sys/stat.h>

#include <cstdio>

namespace corvane {
namespace {

/// A trailing slash would make the link or file before it invisible.
FileURL withoutTrailingSlash(const FileURL& url) {
    return url.has_filename() ? url : deletingLastPathComponent(url) / lastPathComponent(url);
}

} // namespace

AtomicFolder::AtomicFolder(FileURL destination, Destination expected)
    : destination_(withoutTrailingSlash(destination)), expected_(expected) {
    requireExpected();
    temporary_ = deletingLastPathComponent(destination_) / (".corvane-" + makeUUID() + ".partial");
    if (::mkdir(temporary_.c_str(), S_IRWXU) != 0) fail(lastSystemError());
}

AtomicFolder::~AtomicFolder() {
    if (committed_) return;
    try {
        FileManager::removeItem(temporary_);
    } catch (const std::exception&) { // a destructor has nobody to tell
    }
}

void AtomicFolder::requireExpected() const {
    struct stat status {};
    const bool exists = ::lstat(destination_.c_str(), &status) == 0;
    if (expected_ == Destination::nothing) {
        if (exists) fail(std::make_error_code(std::errc::file_exists));
        return;
    }
    if (!exists) fail(lastSystemError());
    if (!S_ISDIR(status.st_mode)) fail(std::make_error_code(std::errc::not_a_directory));
    if (!FileManager::contentsOfDirectory(destination_).empty()) {
        fail(std::make_error_code(std::errc::directory_not_empty));
    }
}

void AtomicFolder::fail(std::error_code reason) const {
    const bool isNew = expected_ == Destination::nothing;
    throw FileError(isNew ? "Cannot create the folder" : "Cannot fill the folder", destination_, reason);
}

void AtomicFolder::commit() {
    // Renaming replaces an empty folder silently, so look again; what stands there otherwise makes the system refuse.
    requireExpected();
    if (std::rename(temporary_.c_str(), destination_.c_str()) != 0) fail(lastSystemError());
    committed_ = true;
}

} // namespace corvane
