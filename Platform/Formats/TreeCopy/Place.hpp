#pragma once

#include "Support/FileError.hpp"
#include "Support/UniqueDescriptor.hpp"

#include <sys/stat.h>

#include <optional>
#include <string>
#include <vector>

namespace corvane::TreeCopying {

/// Throws the error of the system call that has just failed, when it has.
inline void require(bool success, const char* action, const FileURL& url) {
    if (!success) throw FileError(action, url, lastSystemError());
}

/// A name in an open folder, and the whole path for messages.
struct Place {
    int folder;
    std::string name;
    FileURL url;
    /// Of a copy: a companion that stands beside it, if there is one, has been copied, too.
    bool ownsCompanion = false;

    /// Of the item itself; nothing when there is none. @throws FileError
    std::optional<struct stat> status() const;
};

/// Opens a folder below another, component by component, never through a link. @throws FileError
UniqueDescriptor openFolder(int root, const std::string& path, const FileURL& url);
/// Opens a folder that the caller has named, links followed. @throws FileError
UniqueDescriptor openNamedFolder(const FileURL& url);

constexpr std::string_view companionPrefix = "._";

inline std::string companionName(const std::string& name) { return std::string(companionPrefix) + name; }

/// The names in an open folder: companions first, so that what the copies need besides can be added to theirs.
class Listing {
  public:
    /// @throws FileError
    Listing(int folder, const FileURL& url);

    const std::vector<std::string>& names() const { return names_; }
    bool contains(const std::string& name) const;

  private:
    std::vector<std::string> names_;
};

} // namespace corvane::TreeCopying
