#include "Platform/Formats/Xar/HeapLayout.hpp"

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Gzip/Writer.hpp"
#include "Platform/Formats/Xar/DataReader.hpp"
#include "Support/AtomicFile.hpp"
#include "Support/CancellationError.hpp"
#include "Support/FileError.hpp"
#include "Support/WriteAll.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <memory>

namespace corvane::Xar {
namespace {

/// The best level takes nine times as long for the Bom of 200,000 files, and saves a hundredth.
constexpr int compressionLevel = 6;
constexpr DigestKind checksumKind = DigestKind::sha1;

UniqueDescriptor makeNamelessFile(const FileURL& folder) {
    std::string path = folder / ".corvane-XXXXXX.partial";
    UniqueDescriptor descriptor(::mkostemps(path.data(), 8, O_CLOEXEC));
    if (!descriptor) throw FileError("Cannot create", path, lastSystemError());
    ::unlink(path.c_str());
    return descriptor;
}

/// An open file together with the source of its bytes.
class FileContent : public ByteSource {
  public:
    explicit FileContent(const FileURL& url)
        : descriptor_(::open(url.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW)),
          size_(sizeOf(descriptor_, url)),
          range_(descriptor_.get(), url, 0, size_) {}
    std::size_t read(std::span<char> buffer) override { return range_.read(buffer); }
    int descriptor() const { return descriptor_.get(); }
    std::uint64_t size() const { return size_; }

  private:
    static std::uint64_t sizeOf(const UniqueDescriptor& descriptor, const FileURL& url) {
        struct stat status {};
        if (!descriptor || ::fstat(descriptor.get(), &status) != 0)
            throw FileError("Cannot read", url, lastSystemError());
        return static_cast<std::uint64_t>(status.st_size);
    }

    UniqueDescriptor descriptor_;
    std::uint64_t size_;
    FileRange range_;
};

/// The bytes before any compression; null for content that is copied as it is stored.
std::unique_ptr<ByteSource> openContent(const NewEntry& entry) {
    if (const auto* bytes = std::get_if<std::string>(&entry.content)) return std::make_unique<MemorySource>(*bytes);
    if (const auto* url = std::get_if<FileURL>(&entry.content)) return std::make_unique<FileContent>(*url);
    return nullptr;
}

/// Reads everything, hands it to the visitor, and returns the number of bytes.
std::uint64_t forEachPiece(ByteSource& source, const std::stop_token& stop,
                           const std::function<void(std::string_view)>& visitor) {
    std::vector<char> buffer(sourceBufferSize);
    std::uint64_t total = 0;
    while (const std::size_t count = source.read(buffer)) {
        checkCancellation(stop);
        visitor({buffer.data(), count});
        total += count;
    }
    return total;
}

void copy(ByteSource& source, const std::stop_token& stop, AtomicFile& output) {
    forEachPiece(source, stop, [&](std::string_view piece) { output.write(piece); });
}

} // namespace

HeapLayout::HeapLayout(std::vector<NewEntry>& entries, const FileURL& workFolder, std::uint64_t start,
                       const std::stop_token& stop)
    : stop_(stop), entries_(entries), workFolder_(workFolder), end_(start) {
    for (NewEntry& entry : entries_) place(entry);
}

void HeapLayout::place(NewEntry& entry) {
    entry.entry.id = ++count_;
    if (!std::holds_alternative<std::monostate>(entry.content)) {
        Data data = prepare(entry);
        data.stored.offset = end_;
        end_ += data.stored.length;
        entry.entry.data = data;
    }
    for (NewEntry& child : entry.children) place(child);
}

/// Everything about the data but their place.
Data HeapLayout::prepare(const NewEntry& entry) {
    if (const auto* archived = std::get_if<ArchivedContent>(&entry.content)) return archived->data;
    const auto content = openContent(entry);
    if (entry.encoding == Encoding::zlib) return compress(*content);
    Hasher hasher(checksumKind);
    Data data{.encoding = Encoding::stored};
    data.size = forEachPiece(*content, stop_, [&](std::string_view piece) { hasher.update(piece); });
    data.stored.length = data.size;
    data.archivedChecksum = data.extractedChecksum = Checksum{checksumKind, hasher.finish()};
    return data;
}

Data HeapLayout::compress(ByteSource& content) {
    if (!spool_) spool_ = makeNamelessFile(workFolder_);
    Hasher archived(checksumKind);
    Hasher extracted(checksumKind);
    Data data{.encoding = Encoding::zlib};
    const auto spool = [&](std::string_view piece) {
        if (!writeAll(spool_.get(), piece)) throw FileError("Cannot write to", workFolder_, lastSystemError());
        archived.update(piece);
        data.stored.length += piece.size();
    };
    Gzip::Writer writer(spool, Gzip::Framing::zlib, compressionLevel);
    data.size = forEachPiece(content, stop_, [&](std::string_view piece) {
        extracted.update(piece);
        writer.write(piece);
    });
    writer.finish();
    data.archivedChecksum = Checksum{checksumKind, archived.finish()};
    data.extractedChecksum = Checksum{checksumKind, extracted.finish()};
    return data;
}

void HeapLayout::write(AtomicFile& output) const {
    std::uint64_t spooled = 0;
    for (const NewEntry& entry : entries_) write(entry, output, spooled);
}

void HeapLayout::write(const NewEntry& entry, AtomicFile& output, std::uint64_t& spooled) const {
    checkCancellation(stop_);
    if (const auto* archived = std::get_if<ArchivedContent>(&entry.content)) {
        // Read as if it were not compressed, the stored bytes come with their own checksum.
        Data stored = archived->data;
        stored.encoding = Encoding::stored;
        stored.size = stored.stored.length;
        stored.extractedChecksum.reset();
        DataReader reader(*archived->archive, stored);
        copy(reader, stop_, output);
    } else if (entry.entry.data && entry.encoding == Encoding::zlib) {
        FileRange range(spool_.get(), workFolder_, spooled, entry.entry.data->stored.length);
        spooled += entry.entry.data->stored.length;
        copy(range, stop_, output);
    } else if (const auto* url = std::get_if<FileURL>(&entry.content)) {
        const FileContent file(*url);
        output.copyContent(file.descriptor(), *url);
        if (file.size() != entry.entry.data->size) throw FormatError(url->string() + " changed while it was archived");
    } else if (const auto* bytes = std::get_if<std::string>(&entry.content)) {
        output.write(*bytes);
    }
    for (const NewEntry& child : entry.children) write(child, output, spooled);
}

} // namespace corvane::Xar
