#pragma once

#include "Platform/Formats/Xar/NewEntry.hpp"
#include "Support/UniqueDescriptor.hpp"

#include <cstdint>
#include <stop_token>
#include <vector>

namespace corvane {
class AtomicFile;
class ByteSource;
} // namespace corvane

namespace corvane::Xar {

/// Decides where every content stands in the heap. What is to be compressed is compressed once, into a nameless file
/// beside the destination; everything else is read once for its checksum and again when the heap is written.
class HeapLayout {
  public:
    /// Numbers the entries and fills in their data, a folder's content behind the folder, in the order given.
    /// @param workFolder for the nameless file
    /// @param start heap bytes that are reserved in front
    /// @throws FileError, FormatError, CancellationError
    HeapLayout(std::vector<NewEntry>& entries, const FileURL& workFolder, std::uint64_t start,
               const std::stop_token& stop);

    /// Writes the contents one after the other at the file's current position.
    void write(AtomicFile& output) const;

  private:
    void place(NewEntry& entry);
    Data prepare(const NewEntry& entry);
    Data compress(ByteSource& content);
    void write(const NewEntry& entry, AtomicFile& output, std::uint64_t& spooled) const;

    std::stop_token stop_;
    std::vector<NewEntry>& entries_;
    FileURL workFolder_;
    UniqueDescriptor spool_;
    std::uint64_t end_;
    std::uint64_t count_ = 0;
};

} // namespace corvane::Xar
