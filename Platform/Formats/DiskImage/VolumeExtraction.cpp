#include "Platform/Formats/DiskImage/VolumeExtraction.hpp"

#include "Platform/Formats/ExtractionFolder.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Support/FileError.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <span>
#include <thread>
#include <tuple>
#include <vector>

namespace corvane {
namespace {

constexpr std::string_view companionPrefix = "._";
constexpr std::size_t writerLimit = 8;

std::size_t nameStart(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? 0 : slash + 1;
}

bool isNamedAsCompanion(const VolumeEntry& entry) {
    return std::string_view(entry.path).substr(nameStart(entry.path)).starts_with(companionPrefix);
}

std::string companionOf(std::string path) { return path.insert(nameStart(path), companionPrefix); }

void requireKnownKind(const VolumeEntry& entry) {
    const mode_t mode = entry.mode;
    if (S_ISDIR(mode) || S_ISREG(mode) || S_ISLNK(mode)) return;
    const char* kind = S_ISFIFO(mode) ? "a named pipe" : S_ISSOCK(mode) ? "a socket" : "a device";
    throw FormatError("disk image: \"" + entry.path + "\" is " + kind + ", which is not supported");
}

/// All names of a file, those that companions have last.
using File = std::span<const VolumeEntry* const>;

/// The names of all files, in the order of the disk, those of one file in a row.
std::vector<const VolumeEntry*> sortedNames(const std::vector<VolumeEntry>& entries) {
    std::vector<const VolumeEntry*> names;
    for (const VolumeEntry& each : entries) {
        if (S_ISREG(each.mode)) names.push_back(&each);
    }
    std::ranges::stable_sort(names, {}, [](const VolumeEntry* name) {
        return std::tuple(name->position, name->number, isNamedAsCompanion(*name));
    });
    return names;
}

std::vector<File> filesOf(const std::vector<const VolumeEntry*>& names) {
    std::vector<File> files;
    for (auto first = names.begin(); first != names.end();) {
        const auto end =
            std::find_if(first, names.end(), [&](const VolumeEntry* name) { return name->number != (*first)->number; });
        files.emplace_back(first, end);
        first = end;
    }
    return files;
}

class Extraction {
  public:
    Extraction(const Volume& volume, const FileURL& folder, const std::stop_token& stop)
        : volume_(volume), url_(folder), stop_(stop), folder_(folder, stop) {}

    void run() {
        const std::vector<VolumeEntry>& entries = volume_.entries();
        std::ranges::for_each(entries, requireKnownKind);
        for (const VolumeEntry& each : entries) {
            if (S_ISDIR(each.mode)) folder_.addFolder(each.path, attributes(each));
        }
        const std::vector<const VolumeEntry*> names = sortedNames(entries);
        const std::vector<File> files = filesOf(names);
        addFiles(files);
        for (const VolumeEntry& each : entries) {
            if (S_ISLNK(each.mode)) folder_.addSymbolicLink(each.path, each.linkTarget, attributes(each));
        }
        addFilesNamedAsCompanions(files);
        folder_.finish();
    }

  private:
    FileAttributes attributes(const VolumeEntry& entry) const {
        return {.mode = entry.mode & 07777U, .modificationTime = entry.modified, .extended = volume_.attributes(entry)};
    }

    /// Creating a small file takes the system longer than its bytes take to be decoded: threads take turns.
    void addFiles(const std::vector<File>& files) const {
        std::atomic<std::size_t> next = 0;
        const auto work = [&] {
            try {
                ExtractionFolder folder(url_, stop_);
                for (std::size_t index = next++; index < files.size(); index = next++) addFile(folder, files[index]);
            } catch (...) {
                next = files.size();
                throw;
            }
        };
        std::vector<std::future<void>> others;
        const std::size_t threads = std::min<std::size_t>(std::thread::hardware_concurrency(), writerLimit);
        for (std::size_t count = threads; count > 1; --count) others.push_back(std::async(std::launch::async, work));
        work();
        for (std::future<void>& other : others) other.get();
    }

    /// Under its ordinary names.
    void addFile(ExtractionFolder& folder, File names) const {
        const VolumeEntry& first = *names.front();
        if (isNamedAsCompanion(first)) return;
        addFirst(folder, first);
        for (const VolumeEntry* name : names.subspan(1)) {
            if (!isNamedAsCompanion(*name)) addHardLink(folder, *name, first);
        }
    }

    /// Once all companions have been made: where one of these names is that of a companion, it is found to exist.
    void addFilesNamedAsCompanions(const std::vector<File>& files) {
        for (const File names : files) {
            if (isNamedAsCompanion(*names.front())) continue;
            for (const VolumeEntry* name : names.subspan(1)) {
                if (isNamedAsCompanion(*name)) addHardLink(folder_, *name, *names.front());
            }
        }
        for (const File names : files) {
            if (!isNamedAsCompanion(*names.front())) continue;
            addFirst(folder_, *names.front());
            for (const VolumeEntry* name : names.subspan(1)) folder_.addHardLink(name->path, names.front()->path);
        }
    }

    void addFirst(ExtractionFolder& folder, const VolumeEntry& file) const {
        folder.addFile(file.path, attributes(file), file.size, *volume_.open(file));
    }

    /// Attributes that the file system did not take stand beside each of the names.
    void addHardLink(ExtractionFolder& folder, const VolumeEntry& name, const VolumeEntry& first) const {
        folder.addHardLink(name.path, first.path);
        struct stat status {};
        const std::string companion = companionOf(first.path);
        if (::lstat((url_ / companion).c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return;
        if (isNamedAsCompanion(name)) {
            throw FileError("Cannot keep attributes of", url_ / name.path,
                            std::make_error_code(std::errc::not_supported));
        }
        folder.addHardLink(companionOf(name.path), companion);
    }

    const Volume& volume_;
    FileURL url_;
    std::stop_token stop_;
    ExtractionFolder folder_;
};

} // namespace

void extractVolume(const Volume& volume, const FileURL& folder, const std::stop_token& stop) {
    Extraction(volume, folder, stop).run();
}

} // namespace corvane
