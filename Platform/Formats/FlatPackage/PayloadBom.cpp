#include "Platform/Formats/FlatPackage/PayloadBom.hpp"

#include "Platform/Formats/Bom/Writer.hpp"
#include "Platform/Formats/PosixChecksum.hpp"

#include <algorithm>
#include <limits>

namespace corvane::FlatPackage {
namespace {

Bom::EntryType typeOf(const FolderTree::Entry& entry) {
    if (entry.isDirectory()) return Bom::EntryType::directory;
    return entry.isSymbolicLink() ? Bom::EntryType::symbolicLink : Bom::EntryType::file;
}

Bom::Entry companionEntry(const FolderTree::Entry& entry, const FolderTree::Entry& owner) {
    return {.path = entry.path, .mode = static_cast<std::uint16_t>(owner.mode), .isCompanion = true};
}

Bom::Entry bomEntry(const FolderTree::Entry& entry, std::uint32_t checksum, std::uint64_t latestTime) {
    const auto time = static_cast<std::uint64_t>(std::max<time_t>(entry.modified.tv_sec, 0));
    Bom::Entry result{.path = entry.path,
                      .type = typeOf(entry),
                      .mode = static_cast<std::uint16_t>(entry.mode),
                      .modificationTime = static_cast<std::uint32_t>(std::min(time, latestTime)),
                      .size = FolderTree::countedSize(entry),
                      .checksum = checksum,
                      .linkTarget = entry.linkTarget};
    if (entry.isSymbolicLink()) {
        result.mode = S_IFLNK | 0755;
        result.checksum = posixChecksum(entry.linkTarget);
    }
    return result;
}

} // namespace

void writePayloadBom(const FolderTree& tree, const Cpio::FolderChecksums& checksums,
                     std::optional<std::uint64_t> latestTime, const std::function<void(std::string_view)>& sink) {
    constexpr std::uint64_t timeLimit = std::numeric_limits<std::uint32_t>::max();
    Bom::Writer writer;
    for (std::size_t place = 0; place < tree.entries().size(); ++place) {
        const FolderTree::Entry& entry = tree.entries()[place];
        if (entry.isCompanion) {
            writer.add(companionEntry(entry, tree.entries()[entry.owner]));
            continue;
        }
        Bom::Entry described =
            bomEntry(entry, checksums.files[place], std::min(latestTime.value_or(timeLimit), timeLimit));
        const auto found = checksums.architectures.find(place);
        if (found != checksums.architectures.end()) described.architectures = found->second;
        writer.add(described);
    }
    writer.finish(sink);
}

} // namespace corvane::FlatPackage
