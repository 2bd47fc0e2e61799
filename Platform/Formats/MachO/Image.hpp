#pragma once

#include "Platform/Formats/MachO/Slices.hpp"
#include "Support/FileURL.hpp"

#include <optional>
#include <string>

namespace corvane::MachO {

/// Bytes of a slice, counted from its start; never past its end.
struct Range {
    std::uint64_t offset = 0;
    std::uint64_t size = 0;

    std::uint64_t end() const { return offset + size; }
    bool operator==(const Range&) const = default;
};

/// What the load commands of a slice say, as far as signatures ask: 32 and 64 bit, either byte order.
struct Image {
    /// The blobs of the signature (LC_CODE_SIGNATURE).
    std::optional<Range> signature;
    /// The segment __LINKEDIT in the file.
    std::optional<Range> linkEdit;
    /// The section __info_plist of the segment __TEXT.
    std::optional<Range> infoPropertyList;

    /// @param name for errors
    /// @throws FormatError for load commands that contradict the slice or each other, FileError
    static Image read(int descriptor, const FileURL& name, const Slice& slice);
};

/// The name of an architecture, "x86_64", "arm64e"; of an unknown one its numbers.
std::string architectureName(const Slice& slice);

/// Whether the file has room for nothing that no slice accounts for: __LINKEDIT ends each slice, gaps between slices
/// are zero and shorter than the alignment that the header states, and nothing follows the last slice.
/// @throws FormatError, FileError
bool isTightlyPacked(int descriptor, const FileURL& name);

} // namespace corvane::MachO
