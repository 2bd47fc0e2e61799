#include "Platform/Formats/CodeResources/ResourceScan.hpp"

#include "Platform/Formats/ExtendedAttributes/ExtendedAttributes.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Support/FileError.hpp"
#include "Support/UniqueDescriptor.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <optional>

namespace corvane::CodeResources {
namespace {

constexpr std::string_view companionPrefix = "._";

struct CloseFolder {
    void operator()(DIR* folder) const { ::closedir(folder); }
};
using OpenFolder = std::unique_ptr<DIR, CloseFolder>;

bool isNestedCode(const Treatment& treatment, std::string_view name) {
    return treatment.isNested && name.find('.') != std::string_view::npos;
}

bool isClosedToUs(const std::error_code& error) {
    return error == std::errc::permission_denied || error == std::errc::operation_not_permitted;
}

/// Lists one folder after another, so that however deep they lie two descriptors are open at most.
class Scan {
  public:
    Scan(const FileURL& root, const ResourceRules& rules)
        : root_(root), rules_(rules), rootFolder_(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        if (!rootFolder_) throw FileError("Cannot read", root, lastSystemError());
    }

    std::vector<FoundResource> result() {
        list({.path = ".", .depth = 0});
        while (!pending_.empty()) {
            const Folder next = std::move(pending_.back());
            pending_.pop_back();
            list(next);
        }
        std::sort(found_.begin(), found_.end(),
                  [](const FoundResource& left, const FoundResource& right) { return left.path < right.path; });
        return std::move(found_);
    }

  private:
    struct Folder {
        std::string path;
        std::size_t depth = 0;
    };
    struct Entry {
        std::string name;
        struct stat status {};
    };

    void list(const Folder& folder) {
        const auto entries = readableEntries(folder);
        if (!entries) {
            found_.push_back({.path = folder.path, .kind = FoundResource::Kind::unreadableFolder});
            return;
        }
        const std::string prefix = folder.path == "." ? "" : folder.path + "/";
        for (const Entry& entry : *entries) add(prefix + entry.name, entry, folder.depth + 1);
    }

    /// Nothing when the folder is closed to this user. The root must not be.
    std::optional<std::vector<Entry>> readableEntries(const Folder& folder) const {
        try {
            return entries(folder.path);
        } catch (const FileError& error) {
            if (folder.depth == 0 || !isClosedToUs(error.code())) throw;
            return std::nullopt;
        }
    }

    std::vector<Entry> entries(const std::string& path) const {
        const OpenFolder folder = opened(path);
        std::vector<Entry> entries;
        while (const dirent* next = nextEntry(folder.get(), path)) {
            const std::string_view name = next->d_name;
            if (name == "." || name == "..") continue;
            Entry& entry = entries.emplace_back();
            entry.name = name;
            if (::fstatat(::dirfd(folder.get()), next->d_name, &entry.status, AT_SYMLINK_NOFOLLOW) != 0) {
                throw FileError("Cannot read", root_ / path / entry.name, lastSystemError());
            }
        }
        std::sort(entries.begin(), entries.end(),
                  [](const Entry& left, const Entry& right) { return left.name < right.name; });
        return entries;
    }

    OpenFolder opened(const std::string& path) const {
        const int descriptor =
            ::openat(rootFolder_.get(), path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (descriptor < 0) throw FileError("Cannot read", root_ / path, lastSystemError());
        OpenFolder folder(::fdopendir(descriptor));
        if (folder == nullptr) {
            const std::error_code error = lastSystemError();
            ::close(descriptor);
            throw FileError("Cannot read", root_ / path, error);
        }
        return folder;
    }

    const dirent* nextEntry(DIR* folder, const std::string& path) const {
        errno = 0;
        const dirent* entry = ::readdir(folder);
        if (entry == nullptr && errno != 0) throw FileError("Cannot read", root_ / path, lastSystemError());
        return entry;
    }

    void add(std::string path, const Entry& entry, std::size_t depth) {
        if (path.size() > pathLimit) throw FormatError((root_ / path).string() + ": the path is too long");
        const Treatment treatment = rules_.treatment(path);
        const mode_t mode = entry.status.st_mode;
        if (treatment.isExcluded || (S_ISLNK(mode) && !rules_.sealLinks())) return;
        if (S_ISDIR(mode) && !isNestedCode(treatment, entry.name)) {
            if (depth > depthLimit) throw FormatError((root_ / path).string() + ": the folder lies too deep");
            pending_.push_back({std::move(path), depth});
        } else if (treatment.isSealed && !isCompanion(path, entry)) {
            const auto size = S_ISREG(mode) ? static_cast<std::uint64_t>(entry.status.st_size) : 0;
            found_.push_back({.path = std::move(path), .kind = kind(mode), .size = size});
        }
    }

    bool isCompanion(const std::string& path, const Entry& entry) const {
        return S_ISREG(entry.status.st_mode) && entry.name.starts_with(companionPrefix) &&
               ExtendedAttributes::isCompanion(root_ / path);
    }

    static FoundResource::Kind kind(mode_t mode) {
        if (S_ISREG(mode)) return FoundResource::Kind::file;
        if (S_ISLNK(mode)) return FoundResource::Kind::link;
        return S_ISDIR(mode) ? FoundResource::Kind::nestedFolder : FoundResource::Kind::unsupported;
    }

    const FileURL& root_;
    const ResourceRules& rules_;
    UniqueDescriptor rootFolder_;
    std::vector<Folder> pending_;
    std::vector<FoundResource> found_;
};

} // namespace

std::vector<FoundResource> scan(const FileURL& root, const ResourceRules& rules) { return Scan(root, rules).result(); }

bool isSealed(const ResourceRules& rules, std::string_view path) {
    for (std::size_t slash = path.find('/'); slash != std::string_view::npos; slash = path.find('/', slash + 1)) {
        const std::string_view folder = path.substr(0, slash);
        const Treatment treatment = rules.treatment(folder);
        if (treatment.isExcluded) return false;
        if (isNestedCode(treatment, folder.substr(folder.rfind('/') + 1))) return true;
    }
    return rules.treatment(path).isSealed;
}

} // namespace corvane::CodeResources
