#pragma once

#include "Platform/Formats/Digest.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace corvane::Xar {

/// A part of the heap: bytes counted from the heap's start. A parsed range lies within the file.
struct HeapRange {
    std::uint64_t offset = 0;
    std::uint64_t length = 0;

    std::uint64_t end() const { return offset + length; }
    bool operator==(const HeapRange&) const = default;
};

/// A digest that the archive states; `value` as bytes.
struct Checksum {
    DigestKind kind = DigestKind::sha1;
    std::string value;

    bool operator==(const Checksum&) const = default;
};

/// How an entry's data are stored. `zlib` is what archives call "application/x-gzip".
enum class Encoding { stored, zlib, bzip2, lzma, xz };

/// The content of a file. The checksums are over the stored (archived) and the decoded (extracted) bytes; each may be
/// missing.
struct Data {
    HeapRange stored;
    /// Decoded length in bytes.
    std::uint64_t size = 0;
    Encoding encoding = Encoding::stored;
    std::optional<Checksum> archivedChecksum;
    std::optional<Checksum> extractedChecksum;
};

/// An extended attribute. Real archives have wrong ranges and checksums here, so only the range is kept.
struct ExtendedAttribute {
    std::string name;
    HeapRange stored;
};

enum class EntryType { file, directory, symbolicLink, hardLink, fifo, socket, characterDevice, blockDevice };

/// One file, folder or link. The first member of a set of hard links is a `file`; the others are `hardLink`.
struct Entry {
    /// The archive's number of the entry; 0 when it has none.
    std::uint64_t id = 0;
    /// A checked path component.
    std::string name;
    EntryType type = EntryType::file;
    /// Permission bits, 0 to 07777.
    std::optional<std::uint32_t> mode;
    std::optional<std::uint32_t> userID;
    std::optional<std::uint32_t> groupID;
    /// Seconds since 1970 in UTC.
    std::optional<std::int64_t> modificationTime;
    /// The text of a symbolic link, as stored.
    std::string linkTarget;
    /// For a hard link, the `id` of the entry that carries the data.
    std::uint64_t originalID = 0;
    std::vector<ExtendedAttribute> extendedAttributes;
    /// Nothing for an empty file, and for whatever is no file.
    std::optional<Data> data;
    /// What is in a folder; names are unique.
    std::vector<Entry> children;
};

/// Where the checksum of the table of contents stands in the heap, and which digest it is.
struct ContentsChecksum {
    std::string style;
    HeapRange stored;
};

/// A signature over the checksum of the table of contents.
struct Signature {
    /// "RSA" or "CMS".
    std::string style;
    HeapRange stored;
    /// Certificates as DER bytes, in the archive's order: usually leaf, intermediate, root.
    std::vector<std::string> certificates;
};

} // namespace corvane::Xar
