#pragma once

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Gzip/Writer.hpp"
#include "Platform/Formats/Xar/Header.hpp"
#include "Tests/TestSupport.hpp"

#include <string>
#include <string_view>

/// Archives put together by hand, sound or not.
namespace corvane::Xar::TestArchive {

inline const std::string checksumElement = "<checksum style='sha1'><offset>0</offset><size>20</size></checksum>";

/// A table of contents with the usual checksum and these elements.
inline std::string contents(const std::string& elements) {
    return "<xar><toc>" + checksumElement + elements + "</toc></xar>";
}

/// The bytes of an archive: `heap` follows the checksum, so its first byte has the offset 20.
inline std::string bytes(const std::string& contents, const std::string& heap) {
    const std::string compressed = Gzip::compressed(contents, Gzip::Framing::zlib, 9);
    const Header header{
        .compressedLength = compressed.size(), .uncompressedLength = contents.size(), .checksum = DigestKind::sha1};
    return header.serialized() + compressed + digest(DigestKind::sha1, compressed) + heap;
}

/// A `file` element with stored data at the start of the heap.
inline std::string storedFile(const std::string& name, const std::string& data) {
    const std::string size = std::to_string(data.size());
    const std::string checksum = hexadecimal(digest(DigestKind::sha1, data));
    return "<file id='1'><name>" + name + "</name><type>file</type><data><offset>20</offset><length>" + size +
           "</length><size>" + size +
           "</size><encoding style='application/octet-stream'/><archived-checksum style='sha1'>" + checksum +
           "</archived-checksum></data></file>";
}

/// The message of the FormatError that the action throws; "" when it throws none.
template <class Action>
std::string errorOf(const Action& action) {
    try {
        action();
        return "";
    } catch (const FormatError& error) {
        return error.what();
    }
}

} // namespace corvane::Xar::TestArchive
