#include "Platform/Formats/RandomAccess.hpp"

#include "Platform/Formats/FormatError.hpp"
#include "Support/FileError.hpp"
#include "Support/FileManager.hpp"

#include <fcntl.h>

namespace corvane {
namespace {

void requireWithin(std::uint64_t offset, std::uint64_t count, std::uint64_t size) {
    if (offset <= size && count <= size - offset) return;
    throw FormatError("disk", offset,
                      "expected " + std::to_string(count) + " bytes, found the end at " + std::to_string(size));
}

} // namespace

FileAccess::FileAccess(const FileURL& file)
    : name_(file), descriptor_(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
    if (!descriptor_) throw FileError("Cannot open", file, lastSystemError());
    size_ = FileManager::fileSize(file);
}

void FileAccess::read(std::uint64_t offset, std::span<char> buffer) const {
    requireWithin(offset, buffer.size(), size_);
    FileRange range(descriptor_.get(), name_, offset, buffer.size());
    readFully(range, buffer);
}

PartAccess::PartAccess(const RandomAccess& whole, std::uint64_t offset, std::uint64_t size)
    : whole_(whole), offset_(offset), size_(size) {
    requireWithin(offset, size, whole.size());
}

void PartAccess::read(std::uint64_t offset, std::span<char> buffer) const {
    requireWithin(offset, buffer.size(), size_);
    whole_.read(offset_ + offset, buffer);
}

} // namespace corvane
