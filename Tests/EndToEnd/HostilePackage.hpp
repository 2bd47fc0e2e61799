#pragma once

#include "Platform/Formats/Gzip/Writer.hpp"
#include "Support/Base64.hpp"
#include "Tests/Platform/Formats/Xar/ArchiveBuilder.hpp"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>

/// Packages that no tool of ours would make.
namespace corvane::HostilePackage {

/// What the header of a payload's entry says; nothing of it need be true.
struct Header {
    unsigned mode = 0100644;
    unsigned inode = 0;
    unsigned links = 1;
    std::uint64_t time = 1'000'000'000;
};

inline std::string entryOfSize(std::uint64_t size, const std::string& name, const Header& header = {}) {
    char fields[77];
    std::snprintf(fields, sizeof fields, "070707000000%06o%06o000765000024%06o000000%011llo%06zo%011llo", header.inode,
                  header.mode, header.links, static_cast<unsigned long long>(header.time), name.size() + 1,
                  static_cast<unsigned long long>(size));
    return fields + name + '\0';
}

inline std::string entry(const std::string& name, const std::string& data, const Header& header = {}) {
    return entryOfSize(data.size(), name, header) + data;
}
inline std::string folder(const std::string& name, unsigned mode = 0755) {
    return entry(name, "", {.mode = 040000 | mode});
}
inline std::string link(const std::string& name, const std::string& target) {
    return entry(name, target, {.mode = 0120755});
}

/// A payload of these entries, behind the root folder if wanted.
inline std::string payload(const std::string& entries, const std::string& root = folder(".")) {
    return Gzip::compressed(root + entries + entry("TRAILER!!!", "", {.mode = 0}), Gzip::Framing::gzip, 6);
}

const std::string plainPackageInfo = "<pkg-info identifier=\"com.example.tool\" version=\"1\"><payload/></pkg-info>";

/// An archive under construction: elements of its table of contents, which a test may bend, and the heap.
class Archive {
  public:
    /// The element of a file whose data are stored as they are.
    std::string file(const std::string& name, const std::string& data) {
        return element(name, "file", describe(data, data.size(), "octet-stream"));
    }
    /// The element of a compressed file that states any length for the decoded bytes.
    std::string compressedFile(const std::string& name, const std::string& data, std::uint64_t statedSize) {
        return element(name, "file", describe(Gzip::compressed(data, Gzip::Framing::zlib, 9), statedSize, "x-gzip"));
    }
    std::string element(const std::string& name, const std::string& type, const std::string& inner) {
        const bool isPlain = std::all_of(name.begin(), name.end(), [](char byte) { return byte > ' ' && byte <= 'z'; });
        return "<file id='" + std::to_string(++count_) + "'>" +
               (isPlain ? "<name>" + name : "<name enctype='base64'>" + Base64::encoded(name)) + "</name><type>" +
               type + "</type>" + inner + "</file>";
    }
    std::string folder(const std::string& name, const std::string& inner) { return element(name, "directory", inner); }
    std::string link(const std::string& name, const std::string& target) {
        return element(name, "symlink", "<link>" + target + "</link>");
    }
    /// Another name of the file with the number `original`.
    std::string hardLink(const std::string& name, int original) {
        return "<file id='" + std::to_string(++count_) + "'><name>" + name + "</name><type link='" +
               std::to_string(original) + "'>hardlink</type></file>";
    }
    /// The number of the last element that was made.
    int last() const { return count_; }

    std::string bytes(const std::string& elements) const {
        std::string contents = Xar::TestArchive::contents(elements);
        std::replace(contents.begin(), contents.end(), '\'', '"'); // which is all that other programs read
        return Xar::TestArchive::bytes(contents, heap_);
    }

  private:
    std::string describe(const std::string& stored, std::uint64_t size, const std::string& encoding) {
        const std::string checksum = hexadecimal(digest(DigestKind::sha1, stored));
        const std::string offset = std::to_string(20 + heap_.size());
        heap_ += stored;
        return "<data><offset>" + offset + "</offset><length>" + std::to_string(stored.size()) + "</length><size>" +
               std::to_string(size) + "</size><encoding style='application/" + encoding +
               "'/><archived-checksum style='sha1'>" + checksum + "</archived-checksum></data>";
    }

    std::string heap_;
    int count_ = 0;
};

/// A component package with this payload.
inline std::string component(const std::string& payload, const std::string& packageInfo = plainPackageInfo) {
    Archive archive;
    return archive.bytes(archive.file("PackageInfo", packageInfo) + archive.file("Bom", "") +
                         archive.file("Payload", payload));
}

/// A product of the component "Tool.pkg" and what else a test wants; the component has no payload.
inline std::string product(const std::string& distribution, const std::string& componentName = "Tool.pkg") {
    Archive archive;
    const std::string parts =
        archive.file("PackageInfo", plainPackageInfo) + archive.file("Bom", "") + archive.file("Payload", payload(""));
    return archive.bytes(archive.file("Distribution", distribution) + archive.folder(componentName, parts));
}

} // namespace corvane::HostilePackage
