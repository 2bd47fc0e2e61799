#include "Support/TemporaryDirectory.hpp"

#include "Support/FileManager.hpp"
#include "Support/UUID.hpp"

namespace corvane {

TemporaryDirectory::TemporaryDirectory(std::string_view prefix)
    : url_(FileManager::temporaryDirectory() / (std::string(prefix) + makeUUID())) {
    FileManager::createPrivateDirectory(url_);
}

TemporaryDirectory::~TemporaryDirectory() {
    try {
        FileManager::removeItem(url_);
    } catch (const std::exception&) { // a destructor has nobody to tell
    }
}

} // namespace corvane
