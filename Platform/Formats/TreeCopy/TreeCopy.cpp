#include "Platform/Formats/TreeCopy/TreeCopy.hpp"

#include "Platform/Formats/EntryName.hpp"
#include "Platform/Formats/ExtendedAttributes/ExtendedAttributes.hpp"
#include "Platform/Formats/TreeCopy/NewName.hpp"
#include "Platform/Formats/TreeCopy/Place.hpp"
#include "Support/CancellationError.hpp"
#include "Support/ContentCopy.hpp"
#include "Support/FileManager.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <map>

namespace corvane {
namespace {

using namespace TreeCopying;

using Attributes = std::map<std::string, std::string>;

constexpr mode_t modeBits = 07777;

void setTimes(int descriptor, const struct stat& status, const FileURL& url) {
    const timespec times[2] = {status.st_atim, status.st_mtim};
    require(::futimens(descriptor, times) == 0, "Cannot set the time of", url);
}

void setMode(int descriptor, const struct stat& status, const FileURL& url) {
    require(::fchmod(descriptor, status.st_mode & modeBits) == 0, "Cannot set the mode of", url);
}

class TreeCopy {
  public:
    explicit TreeCopy(const std::stop_token& stop) : stop_(stop) {}

    /// Between existing folders.
    /// @param isNew the destination has been made for this, so that it gets the source's attributes
    void copyContent(const FileURL& source, const FileURL& destination, bool isNew);
    /// Copies an item; a folder is made, and its content left for later.
    /// @param path the new item's path below the destination
    void copyItem(const Place& from, const Place& to, const std::string& path);

  private:
    struct Folder {
        std::string path;
        struct stat status {};
        bool isNew = false;
        bool isEntered = false;
        /// Attributes that the file system has not taken.
        Attributes besides;
    };
    /// Of a file with several, the name that was copied, and the attributes that the file system has not taken.
    struct FirstName {
        std::string path;
        Attributes besides;
    };

    /// Copies what is in a folder but for the folders. Returns its attributes that the file system has not taken.
    Attributes enter(const Folder& folder);
    void addFolder(const struct stat& status, const Place& to, const std::string& path);
    void finish(const Folder& folder) const;
    void copyFile(const Place& from, const Place& to, const std::string& path);
    void copySymbolicLink(const Place& from, const struct stat& status, const Place& to) const;
    void copyName(const FirstName& first, const Place& to) const;
    void setOwner(int descriptor, const struct stat& status, const FileURL& url) const;

    const std::stop_token& stop_;
    bool keepsOwner_ = ::geteuid() == 0;
    FileURL source_;
    FileURL destination_;
    UniqueDescriptor sourceRoot_;
    UniqueDescriptor destinationRoot_;
    /// Those to be entered or finished, the next one last.
    std::vector<Folder> folders_;
    std::map<std::pair<dev_t, ino_t>, FirstName> firstNames_;
};

void TreeCopy::copyContent(const FileURL& source, const FileURL& destination, bool isNew) {
    source_ = source;
    destination_ = destination;
    sourceRoot_ = openNamedFolder(source);
    destinationRoot_ = openNamedFolder(destination);
    struct stat status {};
    require(::fstat(sourceRoot_.get(), &status) == 0, "Cannot read", source);
    folders_.push_back({.path = "", .status = status, .isNew = isNew});
    while (!folders_.empty()) {
        const Folder folder = folders_.back();
        if (folder.isEntered) {
            folders_.pop_back();
            finish(folder);
        } else {
            const std::size_t place = folders_.size() - 1;
            folders_[place].isEntered = true;
            Attributes besides = enter(folder);
            folders_[place].besides = std::move(besides);
        }
    }
}

Attributes TreeCopy::enter(const Folder& folder) {
    const FileURL fromURL = folder.path.empty() ? source_ : source_ / folder.path;
    const FileURL toURL = folder.path.empty() ? destination_ : destination_ / folder.path;
    const UniqueDescriptor from = openFolder(sourceRoot_.get(), folder.path, fromURL);
    const UniqueDescriptor to = openFolder(destinationRoot_.get(), folder.path, toURL);
    Attributes besides;
    if (folder.isNew) {
        setOwner(to.get(), folder.status, toURL);
        besides = ExtendedAttributes::copyWithinFileSystem(from.get(), fromURL, to.get(), toURL);
    }
    const Listing listing(from.get(), fromURL);
    const std::size_t place = folders_.size();
    for (const std::string& name : listing.names()) {
        checkCancellation(stop_);
        const std::string path = folder.path.empty() ? name : folder.path + "/" + name;
        EntryName::checkPath(path, source_.string());
        const bool ownsCompanion = folder.isNew || listing.contains(companionName(name));
        copyItem({from.get(), name, fromURL / name}, {to.get(), name, toURL / name, ownsCompanion}, path);
    }
    // The first one is to be entered next.
    std::reverse(folders_.begin() + static_cast<std::ptrdiff_t>(place), folders_.end());
    return besides;
}

void TreeCopy::copyItem(const Place& from, const Place& to, const std::string& path) {
    const auto status = from.status();
    if (!status) throw FileError("Cannot read", from.url, std::make_error_code(std::errc::no_such_file_or_directory));
    const auto first = firstNames_.find({status->st_dev, status->st_ino});
    if (first != firstNames_.end()) {
        copyName(first->second, to);
    } else if (S_ISDIR(status->st_mode)) {
        addFolder(*status, to, path);
    } else if (S_ISREG(status->st_mode)) {
        copyFile(from, to, path);
    } else if (S_ISLNK(status->st_mode)) {
        copySymbolicLink(from, *status, to);
    } else {
        throw std::runtime_error(from.url.string() + ": Neither a file, a folder nor a link");
    }
}

void TreeCopy::addFolder(const struct stat& status, const Place& to, const std::string& path) {
    const bool isNew = ::mkdirat(to.folder, to.name.c_str(), S_IRWXU) == 0;
    if (isNew) {
        if (!to.ownsCompanion) removeOldCompanion(to);
    } else {
        require(errno == EEXIST, "Cannot create the folder", to.url);
        const auto existing = to.status();
        const bool isFolder = existing && S_ISDIR(existing->st_mode);
        if (!isFolder) throw FileError("Cannot replace", to.url, std::make_error_code(std::errc::not_a_directory));
    }
    folders_.push_back({.path = path, .status = status, .isNew = isNew});
}

/// The time and the mode come last: what is put into the folder changes the one, and the other may close it to us. A
/// companion takes its mode from the folder's.
void TreeCopy::finish(const Folder& folder) const {
    if (!folder.isNew) return;
    const FileURL url = folder.path.empty() ? destination_ : destination_ / folder.path;
    const UniqueDescriptor to = openFolder(destinationRoot_.get(), folder.path, url);
    setTimes(to.get(), folder.status, url);
    setMode(to.get(), folder.status, url);
    ExtendedAttributes::keepBeside(url, folder.besides);
}

void TreeCopy::copyFile(const Place& from, const Place& to, const std::string& path) {
    // Without waiting, should a pipe have taken the file's place.
    constexpr int inputFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    const UniqueDescriptor input(::openat(from.folder, from.name.c_str(), inputFlags));
    require(static_cast<bool>(input), "Cannot read", from.url);
    struct stat status {};
    require(::fstat(input.get(), &status) == 0, "Cannot read", from.url);
    if (!S_ISREG(status.st_mode)) throw std::runtime_error(from.url.string() + ": Changed while it was read");

    NewName name(to);
    constexpr int outputFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    UniqueDescriptor output(name.make(
        "Cannot create", [&](const char* as) { return ::openat(to.folder, as, outputFlags, S_IRUSR | S_IWUSR); }));
    corvane::copyContent(input.get(), from.url, output.get(), to.url, stop_);
    const Attributes besides = ExtendedAttributes::copyWithinFileSystem(input.get(), from.url, output.get(), to.url);
    // A new owner takes the set-id bits away, so the mode comes behind it.
    setOwner(output.get(), status, to.url);
    setTimes(output.get(), status, to.url);
    setMode(output.get(), status, to.url);
    // Some file systems report a full disk only when the file is closed.
    require(::close(output.release()) == 0, "Cannot write", to.url);
    name.commit(besides);
    // The companion of the folder that is copied stands outside of it, where its names are not linked to.
    const bool isLinkable = status.st_nlink > 1 && !path.empty();
    if (isLinkable) firstNames_.insert_or_assign({status.st_dev, status.st_ino}, FirstName{path, besides});
}

void TreeCopy::copySymbolicLink(const Place& from, const struct stat& status, const Place& to) const {
    std::array<char, PATH_MAX> text{};
    const ssize_t length = ::readlinkat(from.folder, from.name.c_str(), text.data(), text.size() - 1);
    require(length >= 0, "Cannot read", from.url);
    NewName name(to);
    name.make("Cannot create the link", [&](const char* as) { return ::symlinkat(text.data(), to.folder, as); });
    if (keepsOwner_) {
        const bool isOwned = ::fchownat(to.folder, name.name(), status.st_uid, status.st_gid, AT_SYMLINK_NOFOLLOW) == 0;
        require(isOwned, "Cannot set the owner of", to.url);
    }
    const timespec times[2] = {status.st_atim, status.st_mtim};
    require(::utimensat(to.folder, name.name(), times, AT_SYMLINK_NOFOLLOW) == 0, "Cannot set the time of", to.url);
    name.commit({});
}

void TreeCopy::copyName(const FirstName& first, const Place& to) const {
    NewName name(to);
    name.make("Cannot create the link",
              [&](const char* as) { return ::linkat(destinationRoot_.get(), first.path.c_str(), to.folder, as, 0); });
    name.commit(first.besides);
}

void TreeCopy::setOwner(int descriptor, const struct stat& status, const FileURL& url) const {
    if (!keepsOwner_) return;
    require(::fchown(descriptor, status.st_uid, status.st_gid) == 0, "Cannot set the owner of", url);
}

FileURL resolved(const FileURL& url) {
    std::error_code failure;
    FileURL whole = std::filesystem::weakly_canonical(url, failure);
    if (failure) throw FileError("Cannot read", url, failure);
    return whole;
}

bool isWithin(const FileURL& inner, const FileURL& outer) {
    return std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end()).first == outer.end();
}

/// What has come into being where nothing was: removed, unless all went well.
class NewItems {
  public:
    NewItems() = default;
    NewItems(const NewItems&) = delete;
    NewItems& operator=(const NewItems&) = delete;
    ~NewItems() {
        for (const FileURL& url : urls_) {
            try {
                FileManager::removeItem(url);
            } catch (const std::exception&) { // a destructor has nobody to tell, and it may never have been made
            }
        }
    }

    /// Takes note of an item that is about to be made: of the first folder above it that is missing, or else of itself.
    void add(FileURL url) {
        if (!isMissing(url)) return;
        for (FileURL parent = url.parent_path(); !parent.empty() && isMissing(parent); parent = url.parent_path()) {
            url = parent;
        }
        urls_.push_back(std::move(url));
    }
    void keep() { urls_.clear(); }

  private:
    static bool isMissing(const FileURL& url) {
        struct stat status {};
        return ::lstat(url.c_str(), &status) != 0 && errno == ENOENT;
    }

    std::vector<FileURL> urls_;
};

/// An item that the caller has named, in its folder.
class NamedItem {
  public:
    explicit NamedItem(FileURL url) : url_(std::move(url)) {
        const FileURL folder = deletingLastPathComponent(url_);
        folder_ = openNamedFolder(folder.empty() ? "." : folder);
    }

    Place place(bool ownsCompanion = false) const {
        return {folder_.get(), lastPathComponent(url_), url_, ownsCompanion};
    }
    Place companion() const {
        const std::string name = companionName(lastPathComponent(url_));
        return {folder_.get(), name, deletingLastPathComponent(url_) / name};
    }
    /// False when it has none, or the copy could have none.
    bool copyCompanion(const NamedItem& copy, TreeCopy& work) const {
        const Place from = companion();
        const bool exists =
            ExtendedAttributes::isCompanion(from.url) && !ExtendedAttributes::companion(copy.url_).empty();
        if (exists) work.copyItem(from, copy.companion(), "");
        return exists;
    }

  private:
    FileURL url_;
    UniqueDescriptor folder_;
};

/// What the copy is about to make at a place.
void announce(NewItems& items, const FileURL& target) {
    const FileURL folder = deletingLastPathComponent(target);
    items.add(target);
    items.add(folder / companionName(lastPathComponent(target)));
    if (!folder.empty()) FileManager::createDirectory(folder);
}

void copyFolder(const FileURL& source, const FileURL& destination, const std::stop_token& stop) {
    const FileURL from = resolved(source);
    const FileURL to = resolved(destination);
    if (isWithin(from, to) || isWithin(to, from)) {
        throw std::runtime_error(destination.string() + ": Lies in " + source.string() + ", or the other way round");
    }
    TreeCopy work(stop);
    if (FileManager::isDirectory(destination)) return work.copyContent(source, destination, false);

    const FileURL target = deletingLastPathComponent(destination) / lastPathComponent(destination);
    struct stat status {};
    const bool isTaken = ::lstat(target.c_str(), &status) == 0;
    if (isTaken) throw FileError("Cannot replace", target, std::make_error_code(std::errc::not_a_directory));
    NewItems items;
    announce(items, target);
    require(::mkdir(target.c_str(), S_IRWXU) == 0, "Cannot create the folder", target);
    const NamedItem original(from);
    const NamedItem copy(target);
    if (!original.copyCompanion(copy, work)) removeOldCompanion(copy.place());
    work.copyContent(source, target, true);
    items.keep();
}

void copyFile(const FileURL& source, const FileURL& destination, const std::stop_token& stop) {
    const bool isFolder = FileManager::isDirectory(destination) || !destination.has_filename();
    const FileURL target = isFolder ? destination / lastPathComponent(source) : destination;
    const FileURL from = resolved(source);
    if (from == resolved(target)) throw std::runtime_error(target.string() + ": Is what is to be copied");
    TreeCopy work(stop);
    NewItems items;
    announce(items, target);
    const NamedItem original(from);
    const NamedItem copy(target);
    const bool hasCompanion = original.copyCompanion(copy, work);
    work.copyItem(original.place(), copy.place(hasCompanion), "");
    items.keep();
}

} // namespace

void copyTree(const FileURL& source, const FileURL& destination, const std::stop_token& stop) {
    struct stat status {};
    require(::stat(source.c_str(), &status) == 0, "Cannot read", source);
    S_ISDIR(status.st_mode) ? copyFolder(source, destination, stop) : copyFile(source, destination, stop);
}

} // namespace corvane
