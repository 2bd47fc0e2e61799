#include "Platform/Formats/Cpio/FolderArchive.hpp"

#include "Platform/Formats/Bom/ArchitectureChecksums.hpp"
#include "Platform/Formats/Cpio/Writer.hpp"
#include "Platform/Formats/MachO/Slices.hpp"
#include "Platform/Formats/PosixChecksum.hpp"
#include "Support/CancellationError.hpp"

#include <algorithm>
#include <set>

namespace corvane::Cpio {
namespace {

/// Passes a file's bytes on and computes their checksums.
class ChecksummedFile : public ByteSource {
  public:
    ChecksummedFile(int descriptor, const FileURL& name, std::uint64_t size)
        : range_(descriptor, name, 0, size), architectures_(MachO::slices(source_.front(), size)) {}

    std::size_t read(std::span<char> buffer) override {
        const std::size_t count = source_.read(buffer);
        checksum_.update({buffer.data(), count});
        architectures_.update({buffer.data(), count});
        return count;
    }
    std::uint32_t checksum() { return checksum_.finish(); }
    std::vector<Bom::Architecture> architectures() { return architectures_.finish(); }

  private:
    FileRange range_;
    PeekingSource source_{range_, MachO::headerSize};
    PosixChecksum checksum_;
    Bom::ArchitectureChecksums architectures_;
};

/// Numbers of files with several names come once in an archive, also where counting goes round.
class Inodes {
  public:
    explicit Inodes(const FolderTree& tree) : tree_(tree), numbers_(tree.entries().size()) {}

    std::uint64_t number(std::size_t place) {
        const FolderTree::Entry& entry = tree_.entries()[place];
        if (entry.nameCount == 1) return place;
        if (entry.firstName != place) return numbers_[entry.firstName];
        std::uint64_t number = place;
        while (!shared_.insert(number & inodeMask).second) ++number;
        return numbers_[place] = number;
    }

  private:
    const FolderTree& tree_;
    std::vector<std::uint64_t> numbers_;
    std::set<std::uint64_t> shared_;
};

Entry headerOf(const FolderTree::Entry& source, std::optional<std::uint64_t> latestTime) {
    const auto time = static_cast<std::uint64_t>(std::max<time_t>(source.modified.tv_sec, 0));
    Entry entry{.path = source.path,
                .mode = source.mode,
                .linkCount = source.nameCount,
                .modificationTime = std::min(time, latestTime.value_or(time)),
                .linkTarget = source.linkTarget};
    if (source.isDirectory()) entry.linkCount = 2 + source.childCount;
    if (source.isFile()) entry.size = source.size;
    // Links have no permissions of their own; systems show different ones.
    if (source.isSymbolicLink()) entry.mode = S_IFLNK | 0755;
    return entry;
}

} // namespace

FolderChecksums archiveFolder(const FolderTree& tree, std::optional<std::uint64_t> latestTime,
                              const std::stop_token& stop, const std::function<void(std::string_view)>& sink) {
    Writer writer([&](std::string_view bytes) {
        checkCancellation(stop);
        sink(bytes);
    });
    Inodes inodes(tree);
    FolderChecksums checksums{.files = std::vector<std::uint32_t>(tree.entries().size()), .architectures = {}};
    for (std::size_t place = 0; place < checksums.files.size(); ++place) {
        const FolderTree::Entry& source = tree.entries()[place];
        Entry entry = headerOf(source, latestTime);
        entry.inode = inodes.number(place);
        if (!source.isFile()) {
            writer.add(entry);
            continue;
        }
        if (!source.content.empty()) {
            MemorySource content(source.content);
            writer.add(entry, &content);
            continue;
        }
        const UniqueDescriptor file = tree.openFile(source);
        ChecksummedFile content(file.get(), tree.url(source), source.size);
        writer.add(entry, &content);
        tree.requireUnchanged(source, file);
        checksums.files[place] = content.checksum();
        auto architectures = content.architectures();
        if (!architectures.empty()) checksums.architectures.emplace(place, std::move(architectures));
    }
    tree.requireUnchangedFolders();
    writer.finish();
    return checksums;
}

} // namespace corvane::Cpio
