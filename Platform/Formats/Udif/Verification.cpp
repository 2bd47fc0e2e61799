#include "Platform/Formats/Udif/Verification.hpp"

#include "Platform/Formats/BigEndian.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Support/CancellationError.hpp"

#include <libdeflate.h>
#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <span>
#include <thread>

namespace corvane::Udif {
namespace {

/// What is read at once of bytes that are not compressed.
constexpr std::uint64_t pieceSize = std::uint64_t{1} << 20;

/// The CRC of a run of bytes, which can be joined with that of the run behind it.
struct Run {
    std::uint32_t crc = 0;
    std::uint64_t size = 0;

    void append(const Run& next) {
        crc = static_cast<std::uint32_t>(crc32_combine(crc, next.crc, static_cast<z_off_t>(next.size)));
        size += next.size;
    }
    void append(std::string_view bytes) {
        crc = libdeflate_crc32(crc, bytes.data(), bytes.size());
        size += bytes.size();
    }
};

/// Doubled as often as needed, since hostile images have exabytes of zeros.
Run zeros(std::uint64_t size) {
    Run power;
    power.append(std::string_view("\0", 1));
    Run run;
    for (; size > 0; size >>= 1) {
        if ((size & 1) != 0) run.append(power);
        if (size > 1) power.append(Run(power));
    }
    return run;
}

template <class Read>
Run runOfPieces(std::uint64_t size, const Read& read) {
    Run run;
    std::vector<char> buffer(std::min(size, pieceSize));
    while (run.size < size) {
        const std::span<char> piece(buffer.data(), std::min<std::uint64_t>(buffer.size(), size - run.size));
        read(run.size, piece);
        run.append(std::string_view(piece.data(), piece.size()));
    }
    return run;
}

Run runOf(const ChunkedDisk& disk, std::size_t number, const std::stop_token& stop) {
    const Chunk& chunk = disk.chunks()[number];
    if (chunk.kind == ChunkKind::ignore) return {};
    if (chunk.kind == ChunkKind::zero) return zeros(chunk.size());
    if (chunk.kind == ChunkKind::raw) {
        return runOfPieces(chunk.size(), [&](std::uint64_t offset, std::span<char> piece) {
            checkCancellation(stop);
            disk.readRaw(chunk, offset, piece);
        });
    }
    return {disk.checksum(number), chunk.size()};
}

/// Shares the chunks out among threads.
std::vector<Run> runsOfChunks(const ChunkedDisk& disk, const std::stop_token& stop) {
    const std::vector<Chunk>& chunks = disk.chunks();
    std::vector<Run> runs(chunks.size());
    std::atomic<std::size_t> next = 0;
    const auto work = [&] {
        try {
            for (std::size_t index = next++; index < chunks.size(); index = next++) {
                checkCancellation(stop);
                runs[index] = runOf(disk, index, stop);
            }
        } catch (...) {
            next = chunks.size();
            throw;
        }
    };
    const std::size_t threads = std::min<std::size_t>(std::thread::hardware_concurrency(), chunks.size());
    std::vector<std::future<void>> others;
    for (std::size_t count = threads; count > 1; --count) others.push_back(std::async(std::launch::async, work));
    work();
    for (std::future<void>& other : others) other.get();
    return runs;
}

void compare(const Checksum& expected, std::uint32_t found, const std::string& what) {
    if (expected.type == Checksum::none) return;
    if (expected.type != Checksum::crc32) {
        throw FormatError("disk image: the checksum of " + what + " is of the unknown kind " +
                          std::to_string(expected.type));
    }
    if (expected.value == found) return;
    throw FormatError("disk image: the checksum of " + what + " is " + std::to_string(expected.value) +
                      ", that of its bytes " + std::to_string(found));
}

void verifyDataFork(const RandomAccess& file, const Trailer& trailer, const std::stop_token& stop) {
    if (trailer.dataChecksum.type == Checksum::none) return;
    const Run run = runOfPieces(trailer.dataFork.length, [&](std::uint64_t offset, std::span<char> piece) {
        checkCancellation(stop);
        file.read(trailer.dataFork.offset + offset, piece);
    });
    compare(trailer.dataChecksum, run.crc, "the data fork");
}

} // namespace

void verify(const RandomAccess& file, const Trailer& trailer, const std::vector<BlockTable>& tables,
            const ChunkedDisk& disk, const std::stop_token& stop) {
    auto dataFork = std::async(std::launch::async, [&] { verifyDataFork(file, trailer, stop); });
    const std::vector<Run> runs = runsOfChunks(disk, stop);
    std::string tableChecksums;
    auto run = runs.begin();
    for (const BlockTable& table : tables) {
        Run whole;
        for (std::size_t count = table.chunks.size(); count > 0; --count) whole.append(*run++);
        compare(table.checksum, whole.crc, "the table " + table.name);
        appendBigEndian(tableChecksums, table.checksum.value, 4);
    }
    Run master;
    master.append(tableChecksums);
    compare(trailer.masterChecksum, master.crc, "all tables");
    dataFork.get();
}

} // namespace corvane::Udif
