#include "Support/AtomicFolder.hpp"

#include "Support/FileError.hpp"
#include "Support/FileManager.hpp"
#include "Support/UUID.hpp"

#include <sys/stat.h>

#include <cstdio>

namespace corvane {
namespace {

void requireAbsent(const FileURL& url) {
    struct stat status {};
    if (::lstat(url.c_str(), &status) == 0) {
        throw FileError("Cannot create the folder", url, std::make_error_code(std::errc::file_exists));
    }
}

/// A trailing slash would make the link or file before it invisible.
FileURL withoutTrailingSlash(const FileURL& url) {
    return url.has_filename() ? url : deletingLastPathComponent(url) / lastPathComponent(url);
}

} // namespace

AtomicFolder::AtomicFolder(FileURL destination) : destination_(withoutTrailingSlash(destination)) {
    requireAbsent(destination_);
    temporary_ = deletingLastPathComponent(destination_) / (".corvane-" + makeUUID() + ".partial");
    if (::mkdir(temporary_.c_str(), S_IRWXU) != 0) {
        throw FileError("Cannot create the folder", destination_, lastSystemError());
    }
}

AtomicFolder::~AtomicFolder() {
    if (committed_) return;
    try {
        FileManager::removeItem(temporary_);
    } catch (const std::exception&) { // a destructor has nobody to tell
    }
}

void AtomicFolder::commit() {
    // Renaming replaces an empty folder silently, so look again; what stands there otherwise makes the system refuse.
    requireAbsent(destination_);
    if (std::rename(temporary_.c_str(), destination_.c_str()) != 0) {
        throw FileError("Cannot create the folder", destination_, lastSystemError());
    }
    committed_ = true;
}

} // namespace corvane
