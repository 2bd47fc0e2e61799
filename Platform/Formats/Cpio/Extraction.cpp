#include "Platform/Formats/Cpio/Extraction.hpp"

#include "Platform/Formats/FormatError.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <utility>
#include <vector>

namespace corvane::Cpio {
namespace {

/// True when both sources hold the same bytes; reads both to their end, or to the first difference.
bool haveEqualContent(ByteSource& left, ByteSource& right) {
    std::vector<char> leftBuffer(sourceBufferSize);
    std::vector<char> rightBuffer(sourceBufferSize);
    for (;;) {
        const std::size_t leftCount = readFully(left, leftBuffer);
        const std::size_t rightCount = readFully(right, rightBuffer);
        if (leftCount != rightCount) return false;
        if (leftCount == 0) return true;
        if (!std::equal(leftBuffer.begin(), leftBuffer.begin() + static_cast<std::ptrdiff_t>(leftCount),
                        rightBuffer.begin())) {
            return false;
        }
    }
}

class Extractor {
  public:
    Extractor(Reader& archive, ExtractionFolder& folder, std::string root)
        : archive_(archive), folder_(folder), root_(std::move(root)) {}

    void run() {
        folder_.addFolder(root_, {});
        while (const auto entry = archive_.next()) add(*entry);
        for (auto& [identity, set] : linkSets_) writePending(set, nullptr);
    }

  private:
    /// The names of one file. The octal form gives every name the data, the hexadecimal one only the last name.
    struct LinkSet {
        std::vector<Entry> pending;
        std::string written;
        std::uint64_t size = 0;
    };

    std::string target(const Entry& entry) const { return entry.path == "." ? root_ : root_ + "/" + entry.path; }

    static FileAttributes attributes(const Entry& entry) {
        return {.mode = entry.mode & 07777U,
                .modificationTime = timespec{static_cast<time_t>(entry.modificationTime), 0}};
    }

    void add(const Entry& entry) {
        if (entry.isDirectory()) return folder_.addFolder(target(entry), attributes(entry));
        if (entry.isSymbolicLink()) return folder_.addSymbolicLink(target(entry), entry.linkTarget, attributes(entry));
        if (!entry.isFile()) throw FormatError("cpio: " + entry.path + " is neither a file, a folder nor a link");
        if (entry.linkCount > 1) return addToLinkSet(entry);
        folder_.addFile(target(entry), attributes(entry), entry.size, archive_);
    }

    void addToLinkSet(const Entry& entry) {
        LinkSet& set = linkSets_[{entry.device, entry.inode}];
        if (!set.written.empty() && entry.size != 0) return linkEqualFile(set, entry);
        set.pending.push_back(entry);
        if (entry.size != 0) writePending(set, &archive_);
    }

    /// Writes the last pending name with its data and links the others to it.
    void writePending(LinkSet& set, ByteSource* content) {
        if (set.pending.empty()) return;
        const Entry last = set.pending.back();
        set.pending.pop_back();
        MemorySource nothing("");
        folder_.addFile(target(last), attributes(last), last.size, content != nullptr ? *content : nothing);
        set.written = target(last);
        set.size = last.size;
        for (const Entry& entry : std::exchange(set.pending, {})) folder_.addHardLink(target(entry), set.written);
    }

    /// Inode numbers of large archives repeat, so equal numbers are believed only when the data agree.
    void linkEqualFile(const LinkSet& set, const Entry& entry) {
        const UniqueDescriptor descriptor = folder_.openFile(set.written);
        FileRange written(descriptor.get(), set.written, 0, set.size);
        if (entry.size != set.size || !haveEqualContent(written, archive_)) {
            throw FormatError("cpio: " + entry.path + " and " + set.written + " are one file with different contents");
        }
        folder_.addHardLink(target(entry), set.written);
    }

    Reader& archive_;
    ExtractionFolder& folder_;
    std::string root_;
    std::map<std::pair<std::uint64_t, std::uint64_t>, LinkSet> linkSets_;
};

} // namespace

void extract(Reader& archive, ExtractionFolder& folder, const std::string& path) {
    Extractor(archive, folder, path).run();
}

} // namespace corvane::Cpio
