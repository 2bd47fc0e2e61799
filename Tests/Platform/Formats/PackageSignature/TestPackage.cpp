#include "Tests/Platform/Formats/PackageSignature/TestPackage.hpp"

#include "Platform/Trust/OpenSSLOwners.hpp"

#include <zlib.h>

#include <algorithm>
#include <map>
#include <stdexcept>

namespace corvane::TestSupport {
namespace {

constexpr std::size_t rsaRoom = 256;
constexpr std::size_t messageRoom = 9216;

const EVP_MD* algorithm(DigestKind kind) { return EVP_get_digestbyname(std::string(digestName(kind)).c_str()); }

std::string bigEndian(std::uint64_t value, int size) {
    std::string text = littleEndian(value, size);
    std::reverse(text.begin(), text.end());
    return text;
}

std::string base64(const std::string& bytes) {
    std::string text(bytes.size() / 3 * 4 + 5, '\0');
    const int length =
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                        reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
    return text.substr(0, static_cast<std::size_t>(length));
}

std::string deflated(const std::string& text) {
    uLongf size = compressBound(text.size());
    std::string bytes(size, '\0');
    compress(reinterpret_cast<Bytef*>(bytes.data()), &size, reinterpret_cast<const Bytef*>(text.data()), text.size());
    return bytes.substr(0, size);
}

std::string element(const std::string& name, std::size_t value) {
    return "<" + name + ">" + std::to_string(value) + "</" + name + ">";
}

std::string signatureElement(const char* name, const char* style, std::size_t offset, std::size_t size,
                             const Issued& signer, const std::vector<Certificate>& carried) {
    std::string text = std::string("<") + name + " style=\"" + style + "\">" + element("offset", offset) +
                       element("size", size) + "<KeyInfo xmlns=\"http://www.w3.org/2000/09/xmldsig#\"><X509Data>";
    text += "<X509Certificate>" + base64(signer.certificate.der()) + "</X509Certificate>";
    for (const Certificate& each : carried) text += "<X509Certificate>" + base64(each.der()) + "</X509Certificate>";
    return text + "</X509Data></KeyInfo></" + name + ">";
}

std::string fileElement(const PackageFile& file, std::size_t id, std::size_t offset) {
    const std::string checksum = file.checksum.value_or(hexadecimal(OpenSSL::digest(EVP_sha1(), file.content)));
    const std::size_t start = static_cast<std::size_t>(static_cast<long>(offset) + file.shift);
    std::string text = "<file id=\"" + std::to_string(id) + "\"><name>" + file.name + "</name><type>file</type><data>" +
                       element("offset", start) + element("length", file.content.size()) +
                       element("size", file.content.size()) + "<encoding style=\"application/octet-stream\"/>";
    for (const char* name : {"archived-checksum", "extracted-checksum"}) {
        if (!checksum.empty()) text += std::string("<") + name + " style=\"sha1\">" + checksum + "</" + name + ">";
    }
    return text + "</data></file>";
}

std::string contents(const PackageShape& shape, std::size_t& offset, std::string& data) {
    const std::size_t size = digestSize(shape.kind);
    std::string toc = "<checksum style=\"" + std::string(digestName(shape.kind)) + "\">" + element("offset", 0) +
                      element("size", size) + "</checksum>";
    offset = size;
    if (shape.rsaSigner != nullptr) {
        toc += signatureElement("signature", "RSA", offset, rsaRoom, *shape.rsaSigner, shape.carried);
        offset += rsaRoom;
    }
    if (shape.messageSigner != nullptr) {
        toc += signatureElement("x-signature", "CMS", offset, messageRoom, *shape.messageSigner, shape.carried);
        offset += messageRoom;
    }
    std::size_t id = 0;
    for (const PackageFile& file : shape.files) {
        toc += fileElement(file, ++id, offset + data.size());
        data += file.content;
    }
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><xar><toc>" + toc + "</toc></xar>";
}

std::string rsaSignature(const PackageShape& shape, const std::string& compressed, const std::string& checksum) {
    const std::string digest(digestName(shape.kind));
    if (shape.wrongRSA) return plainSignature(*shape.rsaSigner, digest.c_str(), "other bytes");
    return plainSignature(*shape.rsaSigner, digest.c_str(), shape.doubledRSA ? checksum : compressed);
}

std::string padded(std::string bytes, std::size_t size) {
    if (bytes.size() > size) throw std::logic_error("the signature has no room");
    bytes.resize(size);
    return bytes;
}

} // namespace

TestPackage makePackage(const PackageShape& shape) {
    std::size_t reserved = 0;
    std::string data;
    const std::string text = contents(shape, reserved, data);
    const std::string compressed = deflated(text);
    const std::string checksum = OpenSSL::digest(algorithm(shape.kind), compressed);
    const std::map<DigestKind, unsigned> numbers{
        {DigestKind::sha1, 1}, {DigestKind::md5, 2}, {DigestKind::sha256, 3}, {DigestKind::sha512, 4}};
    TestPackage package{.bytes = "xar!" + bigEndian(28, 2) + bigEndian(1, 2) + bigEndian(compressed.size(), 8) +
                                 bigEndian(text.size(), 8) + bigEndian(numbers.at(shape.kind), 4) + compressed,
                        .checksum = checksum,
                        .heapOffset = 28 + compressed.size()};
    package.bytes += checksum;
    if (shape.rsaSigner != nullptr) package.bytes += padded(rsaSignature(shape, compressed, checksum), rsaRoom);
    if (shape.messageSigner != nullptr) {
        const std::string message = signedMessage(*shape.messageSigner, shape.carried,
                                                  shape.wrongMessage ? "other bytes" : checksum, shape.message);
        package.bytes += padded(message, messageRoom);
    }
    package.bytes += data;
    return package;
}

std::string stapled(const std::string& ticket) {
    const auto trailer = [](int type, std::size_t length) {
        return "t8lr" + littleEndian(1, 2) + littleEndian(static_cast<std::uint64_t>(type), 2) +
               littleEndian(length, 4) + littleEndian(0, 4);
    };
    return trailer(1, 0) + ticket + trailer(2, ticket.size());
}

} // namespace corvane::TestSupport
