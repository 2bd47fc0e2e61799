#include "Platform/Tools/PackageExpansion.hpp"

#include "Platform/Formats/Cpio/Extraction.hpp"
#include "Platform/Formats/ExtractionFolder.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Payload/Reader.hpp"
#include "Platform/Formats/Xar/Archive.hpp"
#include "Platform/Formats/Xar/DataReader.hpp"
#include "Support/AtomicFolder.hpp"

#include <algorithm>
#include <map>
#include <set>

namespace corvane::Tools {
namespace {

using Xar::Entry;
using Xar::EntryType;

bool isComponent(const std::vector<Entry>& entries) {
    return std::any_of(entries.begin(), entries.end(), [](const Entry& each) { return each.name == "PackageInfo"; });
}

class Expansion {
  public:
    Expansion(const Xar::Archive& archive, Payloads payloads, ExtractionFolder& folder)
        : archive_(archive), payloads_(payloads), folder_(folder) {
        const std::vector<Entry>& entries = archive.contents().entries;
        if (isComponent(entries)) components_.insert("");
        for (const Entry& entry : entries) {
            if (isComponent(entry.children)) components_.insert(entry.name + "/");
        }
    }

    void run() {
        archive_.contents().visit([&](const std::string& path, const Entry& entry) { add(path, entry); });
        for (const auto& [path, original] : hardLinks_) addHardLink(path, original);
        folder_.finish();
    }

  private:
    /// An entry without a time gets the archive's, so that expanding it again gives the same.
    FileAttributes attributes(const Entry& entry) const {
        const auto time = entry.modificationTime ? entry.modificationTime : archive_.contents().creationTime;
        FileAttributes attributes{.mode = entry.mode};
        if (time) attributes.modificationTime = timespec{*time, 0};
        return attributes;
    }

    bool isInComponent(const std::string& path, const Entry& entry) const {
        return components_.contains(path.substr(0, path.size() - entry.name.size()));
    }

    /// Where names have their meaning: at the top of a product or of a component.
    bool isAtTopOfPackage(const std::string& path, const Entry& entry) const {
        return path == entry.name || isInComponent(path, entry);
    }

    /// A folder would be taken for the content of an archive, and another name of a file for no archive at all.
    void requireArchive(const std::string& path, const Entry& entry) const {
        const bool isArchive = entry.name == "Payload" || entry.name == "Scripts";
        const bool isOther = entry.type == EntryType::directory || entry.type == EntryType::hardLink;
        if (isArchive && isOther && isInComponent(path, entry)) {
            throw FormatError("xar: " + path + " is no file, where a component has an archive");
        }
        if (payloads_ == Payloads::expand && entry.name == "LargeSegmentedPayload" && isInComponent(path, entry)) {
            throw FormatError("xar: " + path + " is a payload in segments, which cannot be expanded");
        }
    }

    void add(const std::string& path, const Entry& entry) {
        requireArchive(path, entry);
        switch (entry.type) {
        case EntryType::directory:
            return addFolder(path, entry);
        case EntryType::file:
            return addFile(path, entry);
        case EntryType::symbolicLink:
            return addSymbolicLink(path, entry);
        case EntryType::hardLink:
            hardLinks_.emplace(path, entry.originalID);
            return;
        default:
            throw FormatError("xar: " + path + " is neither a file, a folder nor a link");
        }
    }

    /// Whoever expands a package goes on to change and remove what is in it.
    void addFolder(const std::string& path, const Entry& entry) {
        FileAttributes folder = attributes(entry);
        if (folder.mode) *folder.mode |= 0700U;
        folder_.addFolder(path, folder);
    }

    /// Whoever works on the expanded package takes what stands there for the package's own: through a link, a payload
    /// could be any folder of this machine.
    void addSymbolicLink(const std::string& path, const Entry& entry) {
        if (isAtTopOfPackage(path, entry)) {
            throw FormatError("xar: " + path + " is a link, where a package has a file or a folder");
        }
        folder_.addSymbolicLink(path, entry.linkTarget, attributes(entry));
    }

    void addFile(const std::string& path, const Entry& entry) {
        filesByID_.emplace(entry.id, path);
        try {
            const Xar::Data none;
            Xar::DataReader content(archive_, entry.data ? *entry.data : none);
            if (isToBecomeFolder(path, entry)) return addArchive(path, content);
            folder_.addFile(path, attributes(entry), entry.data ? entry.data->size : 0, content);
        } catch (const FormatError& error) {
            throw FormatError(path + ": " + error.what());
        }
    }

    bool isToBecomeFolder(const std::string& path, const Entry& entry) const {
        const bool isWanted = entry.name == "Scripts" || (entry.name == "Payload" && payloads_ == Payloads::expand);
        return isWanted && isAtTopOfPackage(path, entry);
    }

    void addArchive(const std::string& path, ByteSource& content) {
        Payload::Reader archive(content);
        Cpio::Reader entries(archive);
        Cpio::extract(entries, folder_, path);
    }

    void addHardLink(const std::string& path, std::uint64_t original) {
        const auto found = filesByID_.find(original);
        if (found == filesByID_.end()) throw FormatError("xar: " + path + " is a link to an entry that does not exist");
        folder_.addHardLink(path, found->second);
    }

    const Xar::Archive& archive_;
    Payloads payloads_;
    ExtractionFolder& folder_;
    /// Where the content of each component lies: "" in a component package, "Name.pkg/" in a product.
    std::set<std::string> components_;
    std::map<std::uint64_t, std::string> filesByID_;
    std::map<std::string, std::uint64_t> hardLinks_;
};

} // namespace

void expandPackage(const FileURL& package, const FileURL& destination, Payloads payloads, const std::stop_token& stop) {
    const Xar::Archive archive = Xar::Archive::open(package);
    AtomicFolder output(destination);
    ExtractionFolder folder(output.url(), stop);
    Expansion(archive, payloads, folder).run();
    output.commit();
}

} // namespace corvane::Tools
