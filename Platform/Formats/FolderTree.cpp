#include "Platform/Formats/FolderTree.hpp"

#include "Platform/Formats/EntryName.hpp"
#include "Platform/Formats/ExtendedAttributes/ExtendedAttributes.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Support/CancellationError.hpp"
#include "Support/FileManager.hpp"

#include <fcntl.h>

#include <algorithm>
#include <map>
#include <string_view>

namespace corvane {
namespace {

constexpr std::string_view companionPrefix = "._";

bool isCompanionName(const std::string& name) { return name.starts_with(companionPrefix); }

/// The names in a folder, sorted by their bytes.
class Listing {
  public:
    explicit Listing(const FileURL& folder) : folder_(folder) {
        std::error_code error;
        std::filesystem::directory_iterator entry(folder, error);
        for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
            names_.push_back(entry->path().filename());
        }
        if (error) throw FileError("Cannot read", folder, error);
        std::sort(names_.begin(), names_.end());
    }

    const std::vector<std::string>& names() const { return names_; }
    bool contains(const std::string& name) const { return std::binary_search(names_.begin(), names_.end(), name); }

    /// A companion has no companion of its own: beside "a" and "._a", the file "._._a" is one like any other.
    bool hasCompanion(const std::string& name, const std::string& companion) const {
        return contains(name) && contains(companion) && S_ISREG(FileManager::itemStatus(folder_ / companion).st_mode) &&
               !isCompanion(name);
    }
    bool isCompanion(const std::string& name) const {
        return isCompanionName(name) && hasCompanion(name.substr(companionPrefix.size()), name);
    }

  private:
    FileURL folder_;
    std::vector<std::string> names_;
};

} // namespace

struct FolderTree::Walk {
    FolderTree& tree;
    const std::stop_token& stop;
    /// The first name of each file that has several, by device and inode.
    std::map<std::pair<std::uint64_t, std::uint64_t>, std::size_t> firstNames;

    std::size_t append(const std::string& path, const struct stat& status) {
        checkCancellation(stop);
        if (path != ".") EntryName::checkPath(path, tree.root_.string());
        const std::size_t place = tree.entries_.size();
        tree.entries_.push_back({.path = path,
                                 .mode = status.st_mode,
                                 .device = status.st_dev,
                                 .inode = status.st_ino,
                                 .modified = status.st_mtim,
                                 .firstName = place});
        return place;
    }

    void add(const std::string& path, const struct stat& status) {
        const std::size_t place = append(path, status);
        Entry& entry = tree.entries_[place];
        if (entry.isDirectory()) return addContent(place, path);
        if (entry.isSymbolicLink()) {
            entry.linkTarget = FileManager::linkTarget(tree.url(entry));
            entry.size = entry.linkTarget.size();
        } else if (entry.isFile()) {
            entry.size = static_cast<std::uint64_t>(status.st_size);
            if (status.st_nlink > 1) addName(place);
        } else {
            throw FormatError(tree.url(entry).string() + " is neither a file, a folder nor a link");
        }
    }

    void addName(std::size_t place) {
        Entry& entry = tree.entries_[place];
        entry.firstName = firstNames.try_emplace({entry.device, entry.inode}, place).first->second;
        if (entry.firstName != place) ++tree.entries_[entry.firstName].nameCount;
    }

    void addContent(std::size_t folder, const std::string& path) {
        const FileURL url = path == "." ? tree.root_ : tree.root_ / path;
        const std::string prefix = path == "." ? "" : path + "/";
        const Listing listing(url);
        for (const std::string& name : listing.names()) {
            if (listing.isCompanion(name)) continue;
            ++tree.entries_[folder].childCount;
            const std::size_t owner = tree.entries_.size();
            add(prefix + name, FileManager::itemStatus(url / name));
            const std::string companion = std::string(companionPrefix) + name;
            auto content = isCompanionName(name) ? std::nullopt : ExtendedAttributes::wholeCompanion(url / name);
            if (content) {
                requireReplaceable(url / companion);
                addCompanion(prefix + companion, FileManager::itemStatus(url / name), owner, *std::move(content));
            } else if (listing.hasCompanion(name, companion)) {
                addCompanion(prefix + companion, FileManager::itemStatus(url / companion), owner);
            }
        }
    }

    /// A file that only has the name of a companion cannot take the attributes.
    static void requireReplaceable(const FileURL& companion) {
        struct stat status {};
        if (::lstat(companion.c_str(), &status) != 0 || ExtendedAttributes::isCompanion(companion)) return;
        throw FileError("Cannot keep attributes in", companion, std::make_error_code(std::errc::file_exists));
    }

    /// @param content of a companion that is not packed as the file that it is, whose owner's status is given
    void addCompanion(const std::string& path, const struct stat& status, std::size_t owner, std::string content = {}) {
        Entry& entry = tree.entries_[append(path, status)];
        entry.size = static_cast<std::uint64_t>(status.st_size);
        if (!content.empty()) {
            entry.mode = S_IFREG | (S_ISLNK(status.st_mode) ? 0644U : status.st_mode & 0666U);
            entry.size = content.size();
            entry.content = std::move(content);
        }
        entry.isCompanion = true;
        entry.owner = owner;
    }
};

FolderTree::FolderTree(FileURL root, const std::stop_token& stop) : root_(std::move(root)) {
    const struct stat status = FileManager::itemStatus(root_ / ".");
    Walk{*this, stop, {}}.add(".", status);
    for (Entry& entry : entries_) entry.nameCount = entries_[entry.firstName].nameCount;
}

std::uint64_t FolderTree::countedSize(const Entry& entry) {
    return entry.isDirectory() ? 32 * (std::uint64_t{entry.childCount} + 2) : entry.size;
}

std::uint64_t FolderTree::installKBytes() const {
    std::uint64_t blocks = 0;
    for (std::size_t place = 1; place < entries_.size(); ++place) {
        const Entry& entry = entries_[place];
        if (entry.isCompanion || entry.firstName != place) continue;
        blocks += (countedSize(entry) + 511) / 512;
    }
    return (blocks + 1) / 2;
}

UniqueDescriptor FolderTree::openFile(const Entry& entry) const {
    // Without waiting, should a pipe have taken the file's place.
    UniqueDescriptor file(::open(url(entry).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!file) throw FileError("Cannot read", url(entry), lastSystemError());
    requireUnchanged(entry, file);
    return file;
}

void FolderTree::requireUnchanged(const Entry& entry, const UniqueDescriptor& file) const {
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) throw FileError("Cannot read", url(entry), lastSystemError());
    requireSame(entry, status);
    if (static_cast<std::uint64_t>(status.st_size) != entry.size) {
        throw FormatError(url(entry).string() + " changed while it was read");
    }
}

void FolderTree::requireUnchangedFolders() const {
    for (const Entry& entry : entries_) {
        if (entry.isDirectory()) requireSame(entry, FileManager::itemStatus(url(entry)));
    }
}

void FolderTree::requireSame(const Entry& entry, const struct stat& status) const {
    if (status.st_mode != entry.mode || status.st_dev != entry.device || status.st_ino != entry.inode ||
        status.st_mtim.tv_sec != entry.modified.tv_sec || status.st_mtim.tv_nsec != entry.modified.tv_nsec) {
        throw FormatError(url(entry).string() + " changed while it was read");
    }
}

} // namespace corvane
