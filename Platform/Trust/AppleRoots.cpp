#include "Platform/Trust/AppleRoots.hpp"

#include <array>
#include <utility>

namespace corvane {
namespace {

/// A root as this file states it: digits are hexadecimal, times are UTCTime.
struct Root {
    std::string_view country, organization, unit, commonName;
    /// The older root states the country first, the newer one last. A name is the same name in one order only.
    bool countryFirst;
    /// Tag of the strings in the name: PrintableString or UTF8String.
    char stringTag;
    std::string_view notBefore, notAfter;
    std::string_view sha1, sha256;
    /// DER of an AlgorithmIdentifier that fits the key: otherwise OpenSSL does not take the root for self-signed.
    std::string_view signatureAlgorithm;
    std::string_view publicKeyInfo;
};

constexpr char printableString = 0x13;
constexpr char utf8String = 0x0c;

constexpr std::array<Root, 2> roots{{
    {"US", "Apple Inc.", "Apple Certification Authority", "Apple Root CA", true, printableString, "060425214036Z",
     "350209214036Z", "611e5b662c593a08ff58d14ae22452d198df6c60",
     "b0b1730ecbc7ff4505142c49f1295e6eda6bcaed7e2c68c5be91b5a11001f024", "300d06092a864886f70d0101050500",
     "30820122300d06092a864886f70d01010105000382010f003082010a0282010100e491a9091f91db1e4750eb05ed5e79"
     "842deb36a2574c55ec8b1989def94b6cf507ab223002e8183ef85009d37f41a898f9d1ca669c246b11d0a3bbe41b2ac3"
     "1f959e7a0ca4478b5bd4163733cbc40f4dce1469d1c91972f55d0ed57f5f9bf22503ba558f4d5d0df1643523154b1559"
     "1db394f7f69c9ecf50bac15850678f08b420f7cbac2c206f70b63f01308cb743cf0f9d3df32b49281ac8feceb5b90ed9"
     "5e1cd6cb3db53aadf40f0e00920bb121162e74d53c0ddb6216aba37192475355c1af2f41b3f8fbe370cde6a34c457e1f"
     "4c6b50964189c474620b10834187338a81b13058ec5a04328c68b38f1dde6573ff675e65bc49d8769f331465a17794c9"
     "2d0203010001"},
    {"US", "Apple Inc.", "Apple Certification Authority", "Apple Root CA - G3", false, utf8String, "140430181906Z",
     "390430181906Z", "b52cb02fd567e0359fe8fa4d4c41037970fe01b0",
     "63343abfb89a6a03ebb57e9b3f5fa7be7c4f5c756f3017b3a8c488c3653e9179", "300a06082a8648ce3d040303",
     "3076301006072a8648ce3d020106052b810400220362000498e92f3d4072a4ed93227281131cdd1095f1c5a34e71dc14"
     "16d90ee5a6052a77647b5f4e38d3bb1c44b57ff51fb632625dc9e9845b4f304f115a00fd58580ca5f50f2c4d07471375"
     "da9797976f315ced2b9d7b203bd8b954d95e99a43a510a31"},
}};

std::string fromHexadecimal(std::string_view digits) {
    const auto value = [](char digit) { return digit <= '9' ? digit - '0' : digit - 'a' + 10; };
    std::string bytes;
    for (std::size_t at = 0; at + 1 < digits.size(); at += 2) {
        bytes += static_cast<char>(value(digits[at]) * 16 + value(digits[at + 1]));
    }
    return bytes;
}

/// One DER element; lengths up to 65535.
std::string element(char tag, std::string_view content) {
    std::string bytes(1, tag);
    if (content.size() >= 0x100) {
        bytes += {'\x82', static_cast<char>(content.size() >> 8U)};
    } else if (content.size() >= 0x80) {
        bytes += '\x81';
    }
    bytes += static_cast<char>(content.size());
    return bytes.append(content);
}

constexpr char sequence = 0x30;
constexpr char set = 0x31;

/// One part of a name; attribute types are 2.5.4.x.
std::string namePart(char type, char tag, std::string_view value) {
    const std::string oid{'\x06', '\x03', '\x55', '\x04', type};
    return element(set, element(sequence, oid + element(tag, value)));
}

std::string name(const Root& root) {
    const std::string country = namePart(6, printableString, root.country);
    const std::string organization = namePart(10, root.stringTag, root.organization);
    const std::string unit = namePart(11, root.stringTag, root.unit);
    const std::string commonName = namePart(3, root.stringTag, root.commonName);
    return element(sequence, root.countryFirst ? country + organization + unit + commonName
                                               : commonName + unit + organization + country);
}

/// OpenSSL takes anchors as certificates only, so one is put round the name and the key, with an empty signature:
/// nobody checks the signature of an anchor.
std::string certificate(const Root& root) {
    const std::string serial{'\x02', '\x01', '\x01'};
    const std::string algorithm = fromHexadecimal(root.signatureAlgorithm);
    const std::string validity = element(sequence, element(0x17, root.notBefore) + element(0x17, root.notAfter));
    const std::string body =
        serial + algorithm + name(root) + validity + name(root) + fromHexadecimal(root.publicKeyInfo);
    const std::string signature{'\x03', '\x01', '\x00'};
    return element(sequence, element(sequence, body) + algorithm + signature);
}

std::vector<TrustAnchor> makeAnchors() {
    std::vector<TrustAnchor> anchors;
    for (const Root& root : roots) {
        anchors.push_back({Certificate::parse(certificate(root), std::string(root.commonName)),
                           fromHexadecimal(root.sha1), fromHexadecimal(root.sha256)});
    }
    return anchors;
}

} // namespace

const std::vector<TrustAnchor>& AppleRoots::pinned() {
    static const std::vector<TrustAnchor> anchors = makeAnchors();
    return anchors;
}

} // namespace corvane
