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
    while (!ended_ && parts_.size() < threadCount_) {
        try {
            startChunk();
        } catch (...) {
            failure_ = std::current_exception();
            ended_ = true;
        }
    }
}

void Reader::startChunk() {
    const std::string header = fields(encoded_, chunkHeaderSize);
    if (header.empty()) {
        ended_ = true;
        return;
    }
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
    try {
        parts_.push_back({offset_, std::make_unique<Chunk>(encoded_, decodedSize, storedSize, pool_)});
    } catch (const FormatError& error) {
        throw chunkError(offset_, error);
    }
    offset_ += chunkHeaderSize + storedSize;
}

} // namespace corvane::Pbzx
