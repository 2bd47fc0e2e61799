#include "Platform/Tools/ProductBuilding.hpp"

#include "Platform/Formats/FlatPackage/Distribution.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Xar/Archive.hpp"
#include "Platform/Formats/Xar/DataReader.hpp"
#include "Platform/Formats/Xar/Writer.hpp"
#include "Platform/Tools/PackageFlattening.hpp"
#include "Support/FileError.hpp"
#include "Support/FileManager.hpp"
#include "Support/SourceDate.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <deque>
#include <map>

namespace corvane::Tools {
namespace {

using Xar::EntryType;
using Xar::NewEntry;

FileURL findPackage(const std::string& name, const FileURL& packageFolder) {
    if (FileManager::fileExists(packageFolder / name)) return packageFolder / name;
    if (FileManager::fileExists(name)) return name;
    throw FormatError("The package " + name + " is neither in " + packageFolder.string() +
                      " nor in the working folder.");
}

/// The entry with all that is in it, in the order of the heap. Attributes of whoever made the file stay behind.
NewEntry copied(const Xar::Archive& archive, const Xar::Entry& entry) {
    const bool isCopied =
        entry.type == EntryType::file || entry.type == EntryType::directory || entry.type == EntryType::symbolicLink;
    if (!isCopied) throw FormatError(entry.name + " is neither a file, a folder nor a link");
    NewEntry result{.entry = {.name = entry.name,
                              .type = entry.type,
                              .mode = entry.mode,
                              .userID = entry.userID,
                              .groupID = entry.groupID,
                              .modificationTime = entry.modificationTime,
                              .linkTarget = entry.linkTarget},
                    .content = {},
                    .children = {}};
    if (entry.data) result.content = Xar::ArchivedContent{&archive, *entry.data};
    std::vector<const Xar::Entry*> children;
    for (const Xar::Entry& child : entry.children) children.push_back(&child);
    const auto offset = [](const Xar::Entry* each) { return each->data ? each->data->stored.offset : 0; };
    std::stable_sort(children.begin(), children.end(),
                     [&](const Xar::Entry* left, const Xar::Entry* right) { return offset(left) < offset(right); });
    for (const Xar::Entry* child : children) result.children.push_back(copied(archive, *child));
    return result;
}

FlatPackage::PackageSummary summarize(const Xar::Archive& archive) {
    const Xar::Entry* info = archive.contents().find("PackageInfo");
    if (info == nullptr || !info->data || archive.contents().find("Distribution") != nullptr) {
        throw FormatError("It is no component package");
    }
    Xar::DataReader reader(archive, *info->data);
    const std::string name = archive.url().string() + ": PackageInfo";
    return FlatPackage::summarize(XML::Document::parse(readAll(reader, XML::Document::sizeLimit, "PackageInfo"), name),
                                  "PackageInfo");
}

class Product {
  public:
    void add(const std::string& name, const FileURL& url) {
        try {
            if (name == "Distribution" || name == "Resources")
                throw FormatError("The product has a file of that name.");
            const Xar::Archive& archive = archives_.emplace_back(Xar::Archive::open(url));
            summaries_.emplace(name, summarize(archive));
            const Xar::Entry folder{.name = name,
                                    .type = EntryType::directory,
                                    .mode = 0700,
                                    .userID = 0,
                                    .groupID = 0,
                                    .modificationTime = 0,
                                    .children = archive.contents().entries};
            entries_.push_back(copied(archive, folder));
        } catch (const FormatError& error) {
            throw FormatError(url.string() + ": " + error.what());
        }
    }

    /// The folder keeps its mode and time, like all that is in it.
    void addResources(const FileURL& folder, const std::stop_token& stop) {
        struct stat status {};
        if (::stat(folder.c_str(), &status) != 0) throw FileError("Cannot read", folder, lastSystemError());
        const auto time = static_cast<std::uint64_t>(std::max<time_t>(status.st_mtime, 0));
        entries_.push_back(
            {.entry = {.name = "Resources",
                       .type = EntryType::directory,
                       .mode = status.st_mode & 07777U,
                       .modificationTime = static_cast<std::int64_t>(std::min(time, sourceDate().value_or(time)))},
             .content = {},
             .children = folderEntries(folder, stop)});
    }

    void write(const XML::Document& distribution, const FileURL& product, const std::stop_token& stop) {
        entries_.push_back({.entry = {.name = "Distribution"},
                            .content = FlatPackage::productDistribution(distribution, summaries_),
                            .children = {}});
        Xar::writeArchive(std::move(entries_), product, static_cast<std::int64_t>(sourceDate().value_or(0)), stop);
    }

  private:
    /// Open until the product is written; the entries point to them.
    std::deque<Xar::Archive> archives_;
    std::map<std::string, FlatPackage::PackageSummary> summaries_;
    std::vector<NewEntry> entries_;
};

} // namespace

void buildProduct(const FileURL& distribution, const FileURL& packageFolder, const std::optional<FileURL>& resources,
                  const FileURL& product, const std::stop_token& stop) {
    const XML::Document document = XML::Document::read(distribution);
    Product output;
    for (const std::string& name : FlatPackage::referencedPackages(document)) {
        output.add(name, findPackage(name, packageFolder));
    }
    if (resources) output.addResources(*resources, stop);
    output.write(document, product, stop);
}

} // namespace corvane::Tools
