#include "Platform/Tools/PackageFlattening.hpp"

#include "Platform/Formats/Cpio/FolderArchive.hpp"
#include "Platform/Formats/EntryName.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Gzip/Writer.hpp"
#include "Platform/Formats/Xar/TableOfContents.hpp"
#include "Platform/Formats/Xar/Writer.hpp"
#include "Support/AtomicFile.hpp"
#include "Support/CancellationError.hpp"
#include "Support/FileError.hpp"
#include "Support/FileManager.hpp"
#include "Support/SourceDate.hpp"
#include "Support/TemporaryDirectory.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

namespace corvane::Tools {
namespace {

using Xar::EntryType;
using Xar::NewEntry;

/// The order of package tools: components first, and in each the description behind what it describes.
int rank(const NewEntry& entry) {
    const std::string& name = entry.entry.name;
    if (name == "Bom") return 0;
    if (name == "Payload") return 1;
    if (name == "Scripts") return 2;
    if (name == "PackageInfo") return 5;
    if (name == "Distribution") return 6;
    return entry.entry.type == EntryType::directory && pathExtension(name) == "pkg" ? 3 : 4;
}

bool precedes(const NewEntry& left, const NewEntry& right) {
    return std::make_tuple(rank(left), left.entry.name) < std::make_tuple(rank(right), right.entry.name);
}

class Flattening {
  public:
    explicit Flattening(std::stop_token stop) : stop_(std::move(stop)) {}

    /// @param isPackage the folder is a product or a component, where names have their meaning
    std::vector<NewEntry> entries(const FileURL& folder, bool isPackage, std::size_t depth = 0) {
        checkCancellation(stop_);
        if (depth > Xar::TableOfContents::depthLimit) throw FormatError("Too many nested folders: " + folder.string());
        std::vector<NewEntry> result;
        for (const FileURL& url : FileManager::contentsOfDirectory(folder)) {
            result.push_back(entry(url, isPackage, depth));
        }
        std::sort(result.begin(), result.end(), &precedes);
        return result;
    }

  private:
    NewEntry entry(const FileURL& url, bool isInPackage, std::size_t depth) {
        const struct stat status = FileManager::itemStatus(url);
        NewEntry result;
        result.entry.name = url.filename();
        EntryName::checkComponent(result.entry.name, "xar");
        result.entry.mode = status.st_mode & 07777U;
        // What stands at the top of a package is made by tools at any time; resources are the vendor's.
        if (!isInPackage) result.entry.modificationTime = std::min<std::int64_t>(status.st_mtime, latestTime_);
        const std::string& name = result.entry.name;
        if (S_ISDIR(status.st_mode) && isInPackage && name == "Scripts") {
            result.entry.mode = 0644;
            result.content = packedScripts(url);
            result.encoding = Xar::Encoding::stored;
        } else if (S_ISDIR(status.st_mode)) {
            result.entry.type = EntryType::directory;
            const bool isComponent = depth == 0 && std::filesystem::is_regular_file(url / "PackageInfo");
            result.children = entries(url, isComponent, depth + 1);
        } else if (S_ISLNK(status.st_mode)) {
            result.entry.type = EntryType::symbolicLink;
            result.entry.linkTarget = FileManager::linkTarget(url);
        } else if (S_ISREG(status.st_mode)) {
            result.content = url;
            const bool isArchive = name == "Payload" || name == "Scripts" || name == "PlugIns";
            result.encoding = isInPackage && isArchive ? Xar::Encoding::stored : Xar::Encoding::zlib;
        } else {
            throw FormatError(url.string() + " is neither a file, a folder nor a link");
        }
        return result;
    }

    FileURL packedScripts(const FileURL& folder) {
        const FileURL archive = work_.url() / ("Scripts" + std::to_string(++scriptsCount_));
        AtomicFile output(archive);
        Gzip::Writer writer([&](std::string_view bytes) { output.write(bytes); });
        Cpio::archiveFolder(FolderTree(folder, stop_), sourceDate(), stop_,
                            [&](std::string_view bytes) { writer.write(bytes); });
        writer.finish();
        output.commit();
        return archive;
    }

    std::stop_token stop_;
    TemporaryDirectory work_{"corvane-flatten-"};
    std::int64_t latestTime_ =
        static_cast<std::int64_t>(sourceDate().value_or(std::numeric_limits<std::int64_t>::max()));
    int scriptsCount_ = 0;
};

} // namespace

void flattenPackage(const FileURL& folder, const FileURL& package, const std::stop_token& stop) {
    Flattening flattening(stop);
    Xar::writeArchive(flattening.entries(folder, true), package, static_cast<std::int64_t>(sourceDate().value_or(0)),
                      stop);
}

std::vector<Xar::NewEntry> folderEntries(const FileURL& folder, const std::stop_token& stop) {
    return Flattening(stop).entries(folder, false, 1);
}

} // namespace corvane::Tools
