#include "Tests/Platform/Formats/CompressedFile/TestCompression.hpp"

#include "Platform/Formats/BigEndian.hpp"
#include "Platform/Formats/Gzip/Writer.hpp"

#include <algorithm>
#include <vector>

namespace corvane::TestSupport {
namespace {

constexpr std::size_t pieceSize = 65536;

/// Says that there is one resource, of type cmpf and number 1.
constexpr std::string_view resourceMap("\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x1C\0\x32\0\0cmpf\0\0\0\x0A"
                                       "\0\1\xFF\xFF\0\0\0\0\0\0\0\0",
                                       50);

std::string littleEndian(std::uint64_t value, std::size_t width) {
    std::string bytes;
    appendBigEndian(bytes, value, width);
    std::reverse(bytes.begin(), bytes.end());
    return bytes;
}

std::string encoded(std::uint32_t kind, std::string_view piece, std::size_t index) {
    const std::string plain(piece);
    if (kind == 3 || kind == 4) {
        return index % 2 == 1 ? "\xFF" + plain : Gzip::compressed(plain, Gzip::Framing::zlib, 6);
    }
    if (kind == 7 || kind == 8) return "\x06" + plain;
    if (kind == 11 || kind == 12) return "bvx-" + littleEndian(plain.size(), 4) + plain + "bvx$";
    return kind == 9 ? "\xCC" + plain : plain;
}

/// A resource fork of one resource, as that of any other file.
std::string resource(const std::vector<std::string>& pieces) {
    std::string table = littleEndian(pieces.size(), 4);
    std::string data;
    for (const std::string& each : pieces) {
        table += littleEndian(4 + 8 * pieces.size() + data.size(), 4) + littleEndian(each.size(), 4);
        data += each;
    }
    const std::size_t size = 4 + table.size() + data.size();
    std::string fork;
    for (const std::size_t field : {std::size_t{256}, 256 + size, size, resourceMap.size()}) {
        appendBigEndian(fork, field, 4);
    }
    fork.resize(256);
    appendBigEndian(fork, table.size() + data.size(), 4);
    return fork + table + data + std::string(resourceMap);
}

std::string offsets(const std::vector<std::string>& pieces) {
    std::size_t end = 4 * (pieces.size() + 1);
    std::string table = littleEndian(end, 4);
    std::string data;
    for (const std::string& each : pieces) {
        table += littleEndian(end += each.size(), 4);
        data += each;
    }
    return table + data;
}

} // namespace

TestCompression testCompression(std::uint32_t kind, std::string_view plain) {
    TestCompression result{"fpmc" + littleEndian(kind, 4) + littleEndian(plain.size(), 8), ""};
    std::vector<std::string> pieces;
    for (std::size_t at = 0; at < plain.size(); at += pieceSize) {
        pieces.push_back(encoded(kind, plain.substr(at, pieceSize), pieces.size()));
    }
    if (kind == 4) {
        result.resourceFork = resource(pieces);
    } else if (kind % 2 == 0) {
        result.resourceFork = offsets(pieces);
    } else {
        result.attribute += encoded(kind, plain, 0);
    }
    return result;
}

} // namespace corvane::TestSupport
