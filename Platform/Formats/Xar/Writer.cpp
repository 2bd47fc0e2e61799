#include "Platform/Formats/Xar/Writer.hpp"

#include "Platform/Formats/Xar/ContentsDocument.hpp"
#include "Platform/Formats/Xar/HeapLayout.hpp"
#include "Platform/Formats/Xar/SealedContents.hpp"
#include "Support/AtomicFile.hpp"

namespace corvane::Xar {

void writeArchive(std::vector<NewEntry> entries, const FileURL& destination, std::int64_t creationTime,
                  const std::stop_token& stop) {
    constexpr DigestKind checksum = DigestKind::sha1;
    AtomicFile output(destination);
    const HeapLayout layout(entries, deletingLastPathComponent(destination), digestSize(checksum), stop);
    const SealedContents contents =
        SealedContents::make(makeContentsDocument(entries, checksum, creationTime), checksum);
    output.write(contents.start);
    output.write(contents.checksum);
    layout.write(output);
    output.commit();
}

} // namespace corvane::Xar
