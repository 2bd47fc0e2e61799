#include "Platform/Formats/Xar/ContentsDocument.hpp"

#include "Support/Base64.hpp"
#include "Support/Text.hpp"
#include "Support/UTCTime.hpp"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace corvane::Xar {
namespace {

std::string modeText(std::uint32_t mode) {
    char text[16];
    std::snprintf(text, sizeof text, "%04o", mode);
    return text;
}

std::string typeName(EntryType type) {
    switch (type) {
    case EntryType::file:
        return "file";
    case EntryType::directory:
        return "directory";
    case EntryType::symbolicLink:
        return "symlink";
    default:
        throw std::logic_error("only files, folders and symbolic links are written");
    }
}

std::string_view encodingName(Encoding encoding) {
    switch (encoding) {
    case Encoding::stored:
        return "application/octet-stream";
    case Encoding::zlib:
        return "application/x-gzip";
    case Encoding::bzip2:
        return "application/x-bzip2";
    case Encoding::lzma:
        return "application/x-lzma";
    case Encoding::xz:
        break;
    }
    return "application/x-xz";
}

void appendNumber(const XML::Node& parent, const std::string& name, std::uint64_t value) {
    parent.appendElement(name, std::to_string(value));
}

void appendChecksum(const XML::Node& parent, const std::string& name, const std::optional<Checksum>& checksum) {
    if (!checksum) return;
    parent.appendElement(name, hexadecimal(checksum->value))
        .setAttribute("style", std::string(digestName(checksum->kind)));
}

void appendData(const XML::Node& file, const Data& data) {
    const XML::Node element = file.appendElement("data");
    appendNumber(element, "length", data.stored.length);
    appendNumber(element, "offset", data.stored.offset);
    appendNumber(element, "size", data.size);
    element.appendElement("encoding").setAttribute("style", std::string(encodingName(data.encoding)));
    appendChecksum(element, "extracted-checksum", data.extractedChecksum);
    appendChecksum(element, "archived-checksum", data.archivedChecksum);
}

/// XML cannot hold every name of a file.
void appendName(const XML::Node& file, const std::string& name) {
    const bool plain = Text::decodedUTF8(name) == name &&
                       std::none_of(name.begin(), name.end(), [](unsigned char byte) { return byte < 0x20; }) &&
                       name.front() != ' ' && name.back() != ' ';
    const XML::Node element = file.appendElement("name", plain ? name : Base64::encoded(name));
    if (!plain) element.setAttribute("enctype", "base64");
}

void appendEntry(const XML::Node& parent, const NewEntry& entry) {
    const Entry& attributes = entry.entry;
    const XML::Node file = parent.appendElement("file");
    file.setAttribute("id", std::to_string(attributes.id));
    if (attributes.data) appendData(file, *attributes.data);
    if (attributes.modificationTime) file.appendElement("mtime", UTCTime::text(*attributes.modificationTime) + "Z");
    if (attributes.groupID) appendNumber(file, "gid", *attributes.groupID);
    if (attributes.userID) appendNumber(file, "uid", *attributes.userID);
    if (attributes.mode) file.appendElement("mode", modeText(*attributes.mode));
    if (attributes.type == EntryType::symbolicLink) {
        file.appendElement("link", attributes.linkTarget).setAttribute("type", "broken");
    }
    file.appendElement("type", typeName(attributes.type));
    appendName(file, attributes.name);
    for (const NewEntry& child : entry.children) appendEntry(file, child);
}

} // namespace

XML::Document makeContentsDocument(const std::vector<NewEntry>& entries, DigestKind checksum,
                                   std::int64_t creationTime) {
    XML::Document document = XML::Document::make("xar");
    const XML::Node toc = document.root().appendElement("toc");
    toc.appendElement("creation-time", UTCTime::text(creationTime));
    const XML::Node element = toc.appendElement("checksum");
    element.setAttribute("style", std::string(digestName(checksum)));
    appendNumber(element, "offset", 0);
    appendNumber(element, "size", digestSize(checksum));
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) appendEntry(toc, *entry);
    return document;
}

} // namespace corvane::Xar
