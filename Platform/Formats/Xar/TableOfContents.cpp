#include "Platform/Formats/Xar/TableOfContents.hpp"

#include "Platform/Formats/EntryName.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Xar/ElementReader.hpp"
#include "Support/Base64.hpp"

#include <algorithm>
#include <array>
#include <set>

namespace corvane::Xar {
namespace {

[[noreturn]] void fail(const std::string& problem) { throw FormatError("xar: table of contents: " + problem); }

EntryType entryType(const std::string& name) {
    struct TypeName {
        std::string_view name;
        EntryType type;
    };
    static constexpr std::array<TypeName, 8> types{{{"file", EntryType::file},
                                                    {"directory", EntryType::directory},
                                                    {"symlink", EntryType::symbolicLink},
                                                    {"hardlink", EntryType::hardLink},
                                                    {"fifo", EntryType::fifo},
                                                    {"socket", EntryType::socket},
                                                    {"character special", EntryType::characterDevice},
                                                    {"block special", EntryType::blockDevice}}};
    for (const TypeName& each : types) {
        if (each.name == name) return each.type;
    }
    fail("unknown type of entry \"" + name + "\"");
}

/// Reads the tree of `file` elements. Its depth is bounded by the XML parser, and by the limit here.
class EntryReader {
  public:
    explicit EntryReader(std::uint64_t heapSize) : heapSize_(heapSize) {}

    std::vector<Entry> children(const XML::Node& parent, std::size_t pathLength, std::size_t depth) {
        std::vector<Entry> result;
        std::set<std::string> names;
        for (const XML::Node& file : parent.elements("file")) {
            result.push_back(entry(file, pathLength, depth + 1));
            if (!names.insert(result.back().name).second)
                fail("found \"" + result.back().name + "\" twice in a folder");
        }
        return result;
    }

  private:
    Entry entry(const XML::Node& file, std::size_t parentLength, std::size_t depth) {
        if (++count_ > TableOfContents::entryLimit) fail("expected fewer entries");
        if (depth > EntryName::depthLimit) fail("expected fewer nested folders");
        Entry entry;
        entry.name = ElementReader::fileName(file);
        const std::size_t pathLength = parentLength + entry.name.size() + 1;
        if (pathLength > EntryName::pathLimit + 1) fail("expected a shorter path to \"" + entry.name + "\"");
        entry.id = ElementReader::number(file.attribute("id").value_or("0"), "id");
        readType(file, entry);
        entry.mode = ElementReader::mode(file);
        entry.userID = ElementReader::owner(file, "uid");
        entry.groupID = ElementReader::owner(file, "gid");
        entry.modificationTime = ElementReader::time(file, "mtime");
        entry.extendedAttributes = extendedAttributes(file);
        entry.data = ElementReader::data(file, heapSize_);
        entry.children = children(file, pathLength, depth);
        checkContent(entry);
        return entry;
    }

    static void readType(const XML::Node& file, Entry& entry) {
        entry.type = entryType(ElementReader::text(file, "type").value_or("file"));
        if (entry.type == EntryType::symbolicLink) {
            const auto link = file.firstElement("link");
            entry.linkTarget = link ? link->text() : "";
        }
        if (entry.type == EntryType::hardLink) {
            const std::string original = file.firstElement("type")->attribute("link").value_or("");
            if (original == "original")
                entry.type = EntryType::file;
            else
                entry.originalID = ElementReader::number(original, "type");
        }
    }

    static void checkContent(const Entry& entry) {
        if (entry.data && entry.type != EntryType::file)
            fail("found data for \"" + entry.name + "\", which is no file");
        if (!entry.children.empty() && entry.type != EntryType::directory) {
            fail("found entries in \"" + entry.name + "\", which is no folder");
        }
    }

    std::vector<ExtendedAttribute> extendedAttributes(const XML::Node& file) const {
        std::vector<ExtendedAttribute> result;
        for (const XML::Node& element : file.elements("ea")) {
            result.push_back({.name = ElementReader::text(element, "name").value_or(""),
                              .stored = ElementReader::range(element, "length", heapSize_)});
        }
        return result;
    }

    std::uint64_t heapSize_;
    std::size_t count_ = 0;
};

std::string certificate(const XML::Node& element) {
    if (auto bytes = Base64::decoded(element.text())) return *std::move(bytes);
    fail("expected a certificate in base 64, found something else");
}

Signature signature(const XML::Node& element, std::uint64_t heapSize) {
    Signature result{.style = element.attribute("style").value_or(""),
                     .stored = ElementReader::range(element, "size", heapSize)};
    for (const XML::Node& keyInfo : element.elements("KeyInfo")) {
        for (const XML::Node& data : keyInfo.elements("X509Data")) {
            for (const XML::Node& item : data.elements("X509Certificate"))
                result.certificates.push_back(certificate(item));
        }
    }
    return result;
}

using Visitor = std::function<void(const std::string& path, const Entry& entry)>;

void visitEntries(const std::vector<Entry>& entries, const std::string& prefix, const Visitor& visitor) {
    for (const Entry& entry : entries) {
        visitor(prefix + entry.name, entry);
        visitEntries(entry.children, prefix + entry.name + "/", visitor);
    }
}

} // namespace

TableOfContents TableOfContents::parse(const XML::Document& document, std::uint64_t heapSize) {
    const auto toc = document.root().name() == "xar" ? document.root().firstElement("toc") : std::nullopt;
    if (!toc || document.root().elements("toc").size() != 1) fail("expected one element \"toc\" in an element \"xar\"");
    TableOfContents contents;
    for (const XML::Node& element : toc->elements()) {
        if (element.name() == "checksum") {
            if (contents.checksum) fail("found two checksums of the table of contents");
            contents.checksum = {.style = element.attribute("style").value_or(""),
                                 .stored = ElementReader::range(element, "size", heapSize)};
        } else if (element.name() == "signature" || element.name() == "x-signature") {
            contents.signatures.push_back(signature(element, heapSize));
        }
    }
    contents.creationTime = ElementReader::time(*toc, "creation-time");
    contents.entries = EntryReader(heapSize).children(*toc, 0, 0);
    return contents;
}

void TableOfContents::visit(const Visitor& visitor) const { visitEntries(entries, "", visitor); }

const Entry* TableOfContents::find(std::string_view path) const {
    const std::vector<Entry>* level = &entries;
    for (;;) {
        const std::string_view name = path.substr(0, path.find('/'));
        const auto found =
            std::find_if(level->begin(), level->end(), [&](const Entry& entry) { return entry.name == name; });
        if (found == level->end()) return nullptr;
        if (name.size() == path.size()) return &*found;
        level = &found->children;
        path.remove_prefix(name.size() + 1);
    }
}

std::uint64_t TableOfContents::reservedSize() const {
    std::uint64_t end = checksum ? checksum->stored.end() : 0;
    for (const Signature& each : signatures) end = std::max(end, each.stored.end());
    return end;
}

std::uint64_t TableOfContents::describedSize() const {
    std::uint64_t end = reservedSize();
    visit([&](const std::string&, const Entry& entry) {
        if (entry.data) end = std::max(end, entry.data->stored.end());
        for (const ExtendedAttribute& attribute : entry.extendedAttributes) end = std::max(end, attribute.stored.end());
    });
    return end;
}

} // namespace corvane::Xar
