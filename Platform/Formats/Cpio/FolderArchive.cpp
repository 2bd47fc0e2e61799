#include "Platform/Formats/Cpio/FolderArchive.hpp"

#include "Platform/Formats/Cpio/Writer.hpp"
#include "Platform/Formats/EntryName.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Support/CancellationError.hpp"
#include "Support/FileError.hpp"
#include "Support/FileManager.hpp"
#include "Support/UniqueDescriptor.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

namespace corvane::Cpio {
namespace {

constexpr std::string_view companionPrefix = "._";

struct stat statusOf(const FileURL& url) {
    struct stat status {};
    if (::lstat(url.c_str(), &status) != 0) throw FileError("Cannot read", url, lastSystemError());
    return status;
}

/// The names in a folder, sorted, companions apart from what they accompany.
struct Listing {
    std::set<std::string> names;
    std::set<std::string> companions;

    explicit Listing(const FileURL& folder) {
        for (const FileURL& url : FileManager::contentsOfDirectory(folder)) names.insert(url.filename());
        for (const std::string& name : names) {
            if (name.starts_with(companionPrefix) && names.contains(name.substr(companionPrefix.size()))) {
                companions.insert(name);
            }
        }
        for (const std::string& name : companions) names.erase(name);
    }
};

class FolderArchiver {
  public:
    FolderArchiver(std::optional<std::uint64_t> latestTime, const std::stop_token& stop,
                   const std::function<void(std::string_view)>& sink)
        : latestTime_(latestTime), stop_(stop), writer_([this, &sink](std::string_view bytes) {
              checkCancellation(stop_);
              sink(bytes);
          }) {}

    void add(const FileURL& url, const std::string& path) {
        const struct stat status = statusOf(url);
        if (S_ISDIR(status.st_mode)) return addFolder(url, path, entry(path, status));
        if (S_ISLNK(status.st_mode)) return addLink(url, entry(path, status));
        if (S_ISREG(status.st_mode)) return addFile(url, entry(path, status), status);
        throw FormatError("cpio: " + url.string() + " is neither a file, a folder nor a link");
    }

    void finish() { writer_.finish(); }

  private:
    Entry entry(const std::string& path, const struct stat& status) {
        if (path != ".") EntryName::checkPath(path, "cpio");
        const auto time = static_cast<std::uint64_t>(std::max<time_t>(status.st_mtime, 0));
        return {.path = path,
                .mode = status.st_mode,
                .inode = count_++,
                .modificationTime = std::min(time, latestTime_.value_or(time))};
    }

    void addFolder(const FileURL& url, const std::string& path, Entry folder) {
        const Listing listing(url);
        folder.linkCount = static_cast<std::uint32_t>(2 + listing.names.size());
        writer_.add(folder);
        for (const std::string& name : listing.names) {
            const std::string childPath = path == "." ? name : path + "/" + name;
            add(url / name, childPath);
            const std::string companion = std::string(companionPrefix) + name;
            if (listing.companions.contains(companion)) addCompanion(url, path, name, companion);
        }
    }

    void addCompanion(const FileURL& folder, const std::string& path, const std::string& name,
                      const std::string& companion) {
        struct stat status = statusOf(folder / companion);
        if (!S_ISREG(status.st_mode)) throw FormatError("cpio: " + (folder / companion).string() + " is no file");
        status.st_mode = S_IFREG | 0644;
        status.st_mtime = statusOf(folder / name).st_mtime;
        addFile(folder / companion, entry(path == "." ? companion : path + "/" + companion, status), status);
    }

    void addLink(const FileURL& url, Entry link) {
        link.linkTarget = std::filesystem::read_symlink(url).string();
        // Links have no permissions of their own; systems show different ones.
        link.mode = S_IFLNK | 0755;
        writer_.add(link);
    }

    void addFile(const FileURL& url, Entry file, const struct stat& status) {
        const UniqueDescriptor descriptor(::open(url.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
        if (!descriptor) throw FileError("Cannot read", url, lastSystemError());
        file.size = static_cast<std::uint64_t>(status.st_size);
        FileRange content(descriptor.get(), url, 0, file.size);
        writer_.add(file, &content);
    }

    std::optional<std::uint64_t> latestTime_;
    std::stop_token stop_;
    Writer writer_;
    std::uint64_t count_ = 0;
};

} // namespace

void archiveFolder(const FileURL& folder, std::optional<std::uint64_t> latestTime, const std::stop_token& stop,
                   const std::function<void(std::string_view)>& sink) {
    FolderArchiver archiver(latestTime, stop, sink);
    archiver.add(folder, ".");
    archiver.finish();
}

} // namespace corvane::Cpio
