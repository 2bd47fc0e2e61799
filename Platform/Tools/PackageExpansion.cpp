#include "Platform/Tools/PackageExpansion.hpp"

#include "Platform/Formats/Cpio/Extraction.hpp"
#include "Platform/Formats/ExtractionFolder.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Payload/Reader.hpp"
#include "Platform/Formats/Xar/Archive.hpp"
#include "Platform/Formats/Xar/DataReader.hpp"
#include "Support/AtomicFolder.hpp"

#include <map>

namespace corvane::Tools {
namespace {

using Xar::Entry;
using Xar::EntryType;

/// Where names have their meaning: at the top of a product or of a component, which has a PackageInfo.
bool isAtTopOfPackage(const Xar::TableOfContents& contents, const std::string& path, const Entry& entry) {
    if (path == entry.name) return true;
    const std::string component = path.substr(0, path.find('/'));
    return path == component + "/" + entry.name && contents.find(component + "/PackageInfo") != nullptr;
}

class Expansion {
  public:
    Expansion(const Xar::Archive& archive, Payloads payloads, ExtractionFolder& folder)
        : archive_(archive), payloads_(payloads), folder_(folder) {}

    void run() {
        archive_.contents().visit([&](const std::string& path, const Entry& entry) { add(path, entry); });
        for (const auto& [path, original] : hardLinks_) addHardLink(path, original);
        folder_.finish();
    }

  private:
    /// An entry without a time gets the archive's, so that expanding it again gives the same.
    FileAttributes attributes(const Entry& entry) const {
        const auto time = entry.modificationTime ? entry.modificationTime : archive_.contents().creationTime;
        return {.mode = entry.mode, .modificationTime = time};
    }

    void add(const std::string& path, const Entry& entry) {
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
        if (isAtTopOfPackage(archive_.contents(), path, entry)) {
            throw FormatError("xar: " + path + " is a link, where a package has a file or a folder");
        }
        folder_.addSymbolicLink(path, entry.linkTarget, attributes(entry));
    }

    void addFile(const std::string& path, const Entry& entry) {
        filesByID_.emplace(entry.id, path);
        try {
            if (!entry.data) {
                MemorySource nothing("");
                return folder_.addFile(path, attributes(entry), 0, nothing);
            }
            Xar::DataReader content(archive_, *entry.data);
            if (isToBecomeFolder(path, entry)) return addArchive(path, content);
            folder_.addFile(path, attributes(entry), entry.data->size, content);
        } catch (const FormatError& error) {
            throw FormatError(path + ": " + error.what());
        }
    }

    bool isToBecomeFolder(const std::string& path, const Entry& entry) const {
        const bool isWanted = entry.name == "Scripts" || (entry.name == "Payload" && payloads_ == Payloads::expand);
        return isWanted && isAtTopOfPackage(archive_.contents(), path, entry);
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
