#include "Platform/Formats/TreeCopy/NewName.hpp"

#include "Platform/Formats/ExtendedAttributes/ExtendedAttributes.hpp"
#include "Support/UUID.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>

namespace corvane::TreeCopying {
namespace {

/// Also one whose item is gone.
bool isAppleDouble(const Place& file) {
    constexpr int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    const UniqueDescriptor open(::openat(file.folder, file.name.c_str(), flags));
    std::array<char, 8> start{};
    const ssize_t count = open ? ::read(open.get(), start.data(), start.size()) : 0;
    return count > 0 && AppleDouble::isRecognized({start.data(), static_cast<std::size_t>(count)});
}

} // namespace

void removeOldCompanion(const Place& item) {
    if (item.name.starts_with(companionPrefix)) return;
    const Place companion{item.folder, companionName(item.name),
                          deletingLastPathComponent(item.url) / companionName(item.name)};
    const auto status = companion.status();
    if (!status || !S_ISREG(status->st_mode) || !isAppleDouble(companion)) return;
    require(::unlinkat(companion.folder, companion.name.c_str(), 0) == 0, "Cannot remove", companion.url);
}

NewName::~NewName() {
    if (isMade_) ::unlinkat(place_.folder, name_.c_str(), 0);
}

void NewName::takeAnother() {
    const auto existing = place_.status();
    const bool isFolder = existing && S_ISDIR(existing->st_mode);
    if (isFolder) throw FileError("Cannot replace", place_.url, std::make_error_code(std::errc::is_a_directory));
    name_ = ".corvane-" + makeUUID() + ".partial";
}

void NewName::commit(const std::map<std::string, std::string>& besides) {
    const bool isPlaced =
        name_ == place_.name || ::renameat(place_.folder, name(), place_.folder, place_.name.c_str()) == 0;
    require(isPlaced, "Cannot place", place_.url);
    isMade_ = false;
    if (!place_.ownsCompanion) removeOldCompanion(place_);
    ExtendedAttributes::keepBeside(place_.url, besides);
}

} // namespace corvane::TreeCopying
