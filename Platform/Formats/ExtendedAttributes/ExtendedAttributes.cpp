#include "Platform/Formats/ExtendedAttributes/ExtendedAttributes.hpp"

#include "Platform/Formats/FormatError.hpp"
#include "Support/AtomicFile.hpp"
#include "Support/FileError.hpp"
#include "Support/FileManager.hpp"
#include "Support/Text.hpp"

#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>
#include <set>

namespace corvane::ExtendedAttributes {
namespace {

constexpr std::string_view nameSpace = "user.";
constexpr std::string_view companionPrefix = "._";
constexpr std::size_t nameLimit = 127;
constexpr std::size_t finderInfoSize = 32;
/// Of a whole companion: two of the largest values, and room for small ones.
constexpr std::uint64_t companionLimit = 2 * std::uint64_t{valueLimit} + (std::uint64_t{1} << 20);

[[noreturn]] void fail(const char* action, const FileURL& item, int code) {
    throw FileError(action, item, {code, std::generic_category()});
}

/// There is nothing to be read: no such attribute, or no attributes of this kind at all on the file system or item.
bool meansAbsent(int code) { return code == ENODATA || code == ENOTSUP || code == EPERM; }

/// The file system keeps no attributes on this item, or none as large.
bool meansNotTaken(int code) {
    return code == ENOTSUP || code == EPERM || code == ENOSPC || code == E2BIG || code == ERANGE;
}

std::string systemName(const std::string& name) { return std::string(nameSpace) + name; }

/// What a system call of the family gives, which first says how much room it needs; nothing where that is absent.
template <class Call>
std::optional<std::string> read(const FileURL& item, Call call) {
    std::string bytes;
    for (;;) {
        const ssize_t size = call(nullptr, 0);
        if (size > 0) bytes.resize(static_cast<std::size_t>(size));
        const ssize_t count = size > 0 ? call(bytes.data(), bytes.size()) : size;
        if (count >= 0) {
            bytes.resize(static_cast<std::size_t>(count));
            return bytes;
        }
        if (meansAbsent(errno)) return std::nullopt;
        // It has grown between the two calls.
        if (errno != ERANGE) throw FileError("Cannot read the attributes of", item, lastSystemError());
    }
}

/// The attributes that the file system itself keeps.
namespace FileSystem {

/// Of the names that the system lists, those in the one name space, without it.
std::vector<std::string> namesIn(const std::optional<std::string>& list) {
    std::vector<std::string> found;
    if (!list) return found;
    for (const std::string_view name : Text::split(*list, '\0')) {
        if (name.starts_with(nameSpace)) found.emplace_back(name.substr(nameSpace.size()));
    }
    return found;
}

std::vector<std::string> names(const FileURL& item) {
    return namesIn(read(item, [&](char* bytes, std::size_t size) { return ::llistxattr(item.c_str(), bytes, size); }));
}

std::optional<std::string> value(const FileURL& item, const std::string& name) {
    const std::string full = systemName(name);
    return read(item,
                [&](char* bytes, std::size_t size) { return ::lgetxattr(item.c_str(), full.c_str(), bytes, size); });
}

/// False when the value must be kept elsewhere.
bool set(const FileURL& item, const std::string& name, const std::string& value) {
    if (::lsetxattr(item.c_str(), systemName(name).c_str(), value.data(), value.size(), 0) == 0) return true;
    if (meansNotTaken(errno)) return false;
    throw FileError("Cannot set an attribute of", item, lastSystemError());
}

bool remove(const FileURL& item, const std::string& name) {
    if (!value(item, name)) return false;
    if (::lremovexattr(item.c_str(), systemName(name).c_str()) == 0) return true;
    throw FileError("Cannot remove an attribute of", item, lastSystemError());
}

} // namespace FileSystem

bool isItem(const FileURL& url) {
    struct stat status {};
    return ::lstat(url.c_str(), &status) == 0;
}

bool isRegularFile(const FileURL& url) {
    struct stat status {};
    return ::lstat(url.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

/// An item's companion, in memory.
class Companion {
  public:
    explicit Companion(const FileURL& item) : item_(item), url_(companion(item)) {
        if (url_.empty() || !isRegularFile(url_)) return;
        const std::string bytes = FileManager::readFile(url_, companionLimit);
        if (!AppleDouble::isRecognized(bytes)) return;
        try {
            content_ = AppleDouble::parse(bytes);
        } catch (const FormatError& error) {
            throw FormatError(url_.string() + ": " + error.what());
        }
        isOurs_ = true;
    }

    const std::map<std::string, std::string>& attributes() const { return content_.attributes; }

    /// In memory: `write` is for all of them.
    void put(const std::string& name, const std::string& value) {
        if (url_.empty()) fail("Cannot keep an attribute of", item_, ENOTSUP);
        if (!isOurs_ && isItem(url_)) fail("Cannot keep attributes in", url_, EEXIST);
        content_.attributes[name] = value;
    }

    bool remove(const std::string& name) {
        if (content_.attributes.erase(name) == 0) return false;
        if (content_.attributes.empty()) {
            FileManager::removeItem(url_);
        } else {
            write();
        }
        return true;
    }

    /// Who may read the item may read its attributes, and nobody else.
    void write() const {
        const std::string bytes = content_.serialized();
        if (bytes.size() > companionLimit) fail("Cannot keep so many attributes of", item_, E2BIG);
        const struct stat status = FileManager::itemStatus(item_);
        AtomicFile file(url_);
        if (!S_ISLNK(status.st_mode)) file.setMode(status.st_mode & 0666U);
        file.write(bytes);
        file.commit();
    }

  private:
    FileURL item_;
    FileURL url_;
    AppleDouble content_;
    bool isOurs_ = false;
};

/// The folders "." and ".." have names of their own only in whole paths.
FileURL withName(const FileURL& item) {
    const std::string name = lastPathComponent(item);
    if (!name.empty() && name != "." && name != "..") return item;
    std::error_code failure;
    FileURL whole = std::filesystem::canonical(item, failure);
    if (failure) throw FileError("Cannot read", item, failure);
    return whole;
}

void requireFits(const FileURL& item, const std::string& name, const std::string& value) {
    constexpr const char* action = "Cannot set an attribute of";
    if (name.empty() || name.find('\0') != std::string::npos) fail(action, item, EINVAL);
    if (name.size() > nameLimit) fail(action, item, ENAMETOOLONG);
    if (value.size() > valueLimit) fail(action, item, E2BIG);
    if (name == finderInfo && value.size() != finderInfoSize) fail(action, item, ERANGE);
}

} // namespace

std::vector<std::string> names(const FileURL& item) {
    FileManager::itemStatus(item);
    const std::vector<std::string> kept = FileSystem::names(item);
    std::set<std::string> found(kept.begin(), kept.end());
    const Companion companion(item);
    for (const auto& [name, value] : companion.attributes()) found.insert(name);
    for (const char* name : {finderInfo, resourceFork}) {
        if (found.contains(name) && !value(item, name)) found.erase(name);
    }
    return {found.begin(), found.end()};
}

std::optional<std::string> value(const FileURL& item, const std::string& name) {
    FileManager::itemStatus(item);
    if (auto found = FileSystem::value(item, name)) {
        return isBlankAttribute(name, *found) ? std::nullopt : std::move(found);
    }
    const Companion companion(item);
    const auto found = companion.attributes().find(name);
    return found == companion.attributes().end() ? std::nullopt : std::optional(found->second);
}

void set(const FileURL& item, const std::string& name, const std::string& value) { set(item, {{name, value}}); }

void set(const FileURL& item, const std::map<std::string, std::string>& attributes) {
    for (const auto& [name, value] : attributes) requireFits(item, name, value);
    FileManager::itemStatus(item);
    Companion companion(item);
    std::vector<std::string> besides;
    for (const auto& [name, value] : attributes) {
        if (isBlankAttribute(name, value)) {
            FileSystem::remove(item, name);
            companion.remove(name);
        } else if (FileSystem::set(item, name, value)) {
            companion.remove(name);
        } else {
            companion.put(name, value);
            besides.push_back(name);
        }
    }
    if (besides.empty()) return;
    // The companion is written once: whoever has thousands of attributes would wait for as many copies of all.
    companion.write();
    for (const std::string& name : besides) FileSystem::remove(item, name);
}

bool remove(const FileURL& item, const std::string& name) {
    FileManager::itemStatus(item);
    Companion companion(item);
    const bool wasInFileSystem = FileSystem::remove(item, name);
    return companion.remove(name) || wasInFileSystem;
}

std::map<std::string, std::string> copyWithinFileSystem(int source, const FileURL& sourceName, int destination,
                                                        const FileURL& destinationName) {
    std::map<std::string, std::string> notTaken;
    const auto list =
        read(sourceName, [&](char* bytes, std::size_t size) { return ::flistxattr(source, bytes, size); });
    for (const std::string& name : FileSystem::namesIn(list)) {
        const std::string full = systemName(name);
        const auto value = read(
            sourceName, [&](char* bytes, std::size_t size) { return ::fgetxattr(source, full.c_str(), bytes, size); });
        if (!value || ::fsetxattr(destination, full.c_str(), value->data(), value->size(), 0) == 0) continue;
        if (!meansNotTaken(errno)) throw FileError("Cannot set an attribute of", destinationName, lastSystemError());
        notTaken.emplace(name, *value);
    }
    return notTaken;
}

void keepBeside(const FileURL& item, const std::map<std::string, std::string>& attributes) {
    if (attributes.empty()) return;
    Companion companion(item);
    for (const auto& [name, value] : attributes) companion.put(name, value);
    companion.write();
}

std::optional<std::string> wholeCompanion(const FileURL& item) {
    if (FileSystem::names(item).empty()) return std::nullopt;
    AppleDouble content;
    for (const std::string& name : names(item)) content.attributes[name] = value(item, name).value_or("");
    if (content.attributes.empty()) return std::nullopt;
    return content.serialized();
}

FileURL companion(const FileURL& item) {
    const FileURL named = withName(item);
    const std::string name = lastPathComponent(named);
    if (name == "/" || name.starts_with(companionPrefix)) return {};
    return deletingLastPathComponent(named) / (std::string(companionPrefix) + name);
}

bool isCompanion(const FileURL& file) {
    const std::string name = lastPathComponent(file);
    if (!name.starts_with(companionPrefix) || !isRegularFile(file)) return false;
    const std::string ownerName = name.substr(companionPrefix.size());
    if (ownerName.empty() || ownerName.starts_with(companionPrefix)) return false;
    if (!isItem(deletingLastPathComponent(file) / ownerName)) return false;
    if (FileManager::fileSize(file) > companionLimit) return false;
    try {
        AppleDouble::parse(FileManager::readFile(file, companionLimit));
        return true;
    } catch (const FormatError&) {
        return false;
    }
}

} // namespace corvane::ExtendedAttributes
