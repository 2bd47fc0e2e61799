#include "Platform/Formats/PackageSignature/SignedContents.hpp"

#include "Platform/Formats/Xar/ElementReader.hpp"
#include "Support/Base64.hpp"

#include <algorithm>
#include <functional>

namespace corvane::PackageSigning {
namespace {

constexpr const char* keyInfoNamespace = "http://www.w3.org/2000/09/xmldsig#";

/// Calls the visitor with every element below the files of `parent` that names a range of the heap.
void visitStored(const XML::Node& parent, const std::function<void(const XML::Node&)>& visitor) {
    for (const XML::Node& file : parent.elements("file")) {
        for (const std::string_view name : {"data", "ea"}) {
            for (const XML::Node& element : file.elements(name)) visitor(element);
        }
        visitStored(file, visitor);
    }
}

XML::Node toc(const XML::Document& document) { return document.root().firstElement("toc").value(); }

void removeElements(const XML::Node& parent, std::string_view name) {
    for (const XML::Node& element : parent.elements(name)) element.remove();
}

void setNumber(const XML::Node& parent, const std::string& name, std::uint64_t value) {
    const std::string digits = std::to_string(value);
    if (const auto element = parent.firstElement(name)) {
        element->setText(digits);
    } else {
        parent.appendElement(name, digits);
    }
}

/// Base 64 in lines of 72 characters, as signing tools write it.
std::string wrapped(const std::string& text) {
    constexpr std::size_t width = 72;
    std::string lines;
    for (std::size_t start = 0; start < text.size(); start += width) {
        lines += (start == 0 ? "" : "\n") + text.substr(start, width);
    }
    return lines;
}

/// Puts the checksum at the heap's start. An archive without one gets one.
XML::Node placeChecksum(const XML::Node& toc, DigestKind digest) {
    const auto found = toc.firstElement("checksum");
    const auto children = toc.elements();
    const XML::Node checksum = found              ? *found
                               : children.empty() ? toc.appendElement("checksum")
                                                  : children.front().insertElementBefore("checksum");
    checksum.setAttribute("style", std::string(digestName(digest)));
    setNumber(checksum, "offset", 0);
    setNumber(checksum, "size", digestSize(digest));
    return checksum;
}

void fillSignature(const XML::Node& element, const std::string& style, const Xar::HeapRange& range,
                   const std::vector<Certificate>& certificates) {
    element.setAttribute("style", style);
    setNumber(element, "offset", range.offset);
    setNumber(element, "size", range.length);
    const XML::Node keyInfo = element.appendElement("KeyInfo");
    keyInfo.setAttribute("xmlns", keyInfoNamespace);
    const XML::Node data = keyInfo.appendElement("X509Data");
    for (const Certificate& certificate : certificates) {
        data.appendElement("X509Certificate", wrapped(Base64::encoded(certificate.der())));
    }
}

/// Moves the ranges of all files. An empty range may name any place of the old heap, also one that is gone.
void moveFiles(const XML::Node& toc, const Xar::HeapRange& files, std::uint64_t start) {
    visitStored(toc, [&](const XML::Node& element) {
        const std::uint64_t offset = Xar::ElementReader::requiredNumber(element, "offset");
        const std::uint64_t within = std::clamp(offset, files.offset, files.end()) - files.offset;
        setNumber(element, "offset", start + within);
    });
}

} // namespace

Xar::HeapRange filesRange(const Xar::Archive& archive) {
    const std::uint64_t heapSize = archive.fileSize() - archive.heapOffset();
    std::uint64_t start = heapSize;
    std::uint64_t end = 0;
    visitStored(toc(archive.document()), [&](const XML::Node& element) {
        const Xar::HeapRange range = Xar::ElementReader::range(element, "length", heapSize);
        if (range.length == 0) return;
        start = std::min(start, range.offset);
        end = std::max(end, range.end());
    });
    return end == 0 ? Xar::HeapRange{} : Xar::HeapRange{.offset = start, .length = end - start};
}

XML::Document signedContents(const Xar::Archive& archive, const Xar::HeapRange& files, const ReservedSpace& reserved,
                             const std::vector<Certificate>& certificates) {
    XML::Document document = XML::Document::parse(archive.document().serialized(false), "xar: table of contents");
    const XML::Node contents = toc(document);
    for (const std::string_view name : {"signature", "x-signature", "signature-creation-time"}) {
        removeElements(contents, name);
    }
    moveFiles(contents, files, reserved.total());
    const Xar::HeapRange rsa{.offset = digestSize(reserved.digest), .length = reserved.rsa};
    const Xar::HeapRange cms{.offset = rsa.end(), .length = reserved.cms};
    const XML::Node first = placeChecksum(contents, reserved.digest).insertElementAfter("signature");
    fillSignature(first, "RSA", rsa, certificates);
    fillSignature(first.insertElementAfter("x-signature"), "CMS", cms, certificates);
    return document;
}

} // namespace corvane::PackageSigning
