#include "Platform/Formats/Pbzx/Reader.hpp"

#include "Platform/Formats/ByteCursor.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Pbzx/Chunk.hpp"
#include "Platform/Formats/Pbzx/Layout.hpp"

#include <lzma.h>

#include <algorithm>
#include <thread>

namespace corvane::Pbzx {
namespace {

constexpr std::string_view formatName = "pbzx";

/// Four times what the package tools write.
constexpr std::uint64_t maximumBlockSize = standardBlockSize * 4;

std::string fields(ByteSource& source, std::size_t size) {
    std::string bytes(size, '\0');
    bytes.resize(readFully(source, bytes));
    return bytes;
}

/// Names the chunk whose content is broken.
FormatError chunkError(std::uint64_t offset, const FormatError& error) {
    return FormatError(std::string(formatName) + ": chunk at offset " + std::to_string(offset) + ": " + error.what());
}

} // namespace

Reader::Reader(ByteSource& encoded, unsigned threads)
    : encoded_(encoded), threadCount_(threads != 0 ? threads : std::max(1U, std::thread::hardware_concurrency())) {
    const std::string header = fields(encoded_, headerSize);
    ByteCursor cursor(header, formatName);
    cursor.expect(magic);
    blockSize_ = cursor.u64BigEndian();
    if (blockSize_ == 0 || blockSize_ > maximumBlockSize) {
        throw FormatError(formatName, magic.size(),
                          "expected a block size of 1 to " + std::to_string(maximumBlockSize) + " bytes, found " +
                              std::to_string(blockSize_));
    }
    offset_ = headerSize;
    // With all threads at work, each chunk is behind the one before it by an equal part of a block. What is expanded
    // further ahead takes memory and saves no time.
    depth_ = static_cast<std::size_t>(blockSize_ / sourceBufferSize * (threadCount_ - 1) / threadCount_) + 2;
}

Reader::~Reader() = default;

std::size_t Reader::read(std::span<char> buffer) {
    for (;;) {
        startChunks();
        if (parts_.empty()) break;
        const Part& part = parts_.front();
        try {
            if (const std::size_t count = part.chunk->read(buffer)) return count;
        } catch (const FormatError& error) {
            throw chunkError(part.offset, error);
        }
        parts_.pop_front();
    }
    if (failure_) std::rethrow_exception(failure_);
    return 0;
}

/// An error waits until the chunks before it were read.
void Reader::startChunks() {
    if (ended_) return;
    try {
        while (parts_.size() < threadCount_ && readHeader() && hasRoom()) startChunk();
    } catch (...) {
        failure_ = std::current_exception();
        ended_ = true;
    }
}

/// False at the end.
bool Reader::readHeader() {
    if (next_) return true;
    const std::string header = fields(encoded_, chunkHeaderSize);
    ended_ = header.empty();
    if (ended_) return false;
    ByteCursor cursor(header, formatName, offset_);
    const std::uint64_t decodedSize = cursor.u64BigEndian();
    const std::uint64_t storedSize = cursor.u64BigEndian();
    const auto check = [&](const char* what, std::uint64_t size, std::uint64_t limit) {
        if (size != 0 && size <= limit) return;
        throw FormatError(formatName, offset_,
                          "expected a chunk's " + std::string(what) + " length of 1 to " + std::to_string(limit) +
                              ", found " + std::to_string(size));
    };
    check("decoded", decodedSize, blockSize_);
    // Another writer may have compressed what does not get smaller.
    check("stored", storedSize, lzma_stream_buffer_bound(static_cast<std::size_t>(decodedSize)));
    next_ = {decodedSize, storedSize};
    return true;
}

/// Blocks that hardly get smaller are in memory twice, stored and expanded. Five eighths of a block for each thread are
/// enough for the others; where more is taken, the next chunk waits.
bool Reader::hasRoom() {
    const std::uint64_t share = blockSize_ / 8 * 5 + 4 * sourceBufferSize;
    return parts_.empty() || pool_.bytesInUse() + next_->storedSize <= share * threadCount_;
}

void Reader::startChunk() {
    try {
        const auto& [decodedSize, storedSize] = *next_;
        parts_.push_back({offset_, std::make_unique<Chunk>(encoded_, decodedSize, storedSize, pool_, depth_)});
    } catch (const FormatError& error) {
        throw chunkError(offset_, error);
    }
    offset_ += chunkHeaderSize + next_->storedSize;
    next_.reset();
}

} // namespace corvane::Pbzx
