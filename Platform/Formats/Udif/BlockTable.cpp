#include "Platform/Formats/Udif/BlockTable.hpp"

#include "Platform/Formats/ByteCursor.hpp"

namespace corvane::Udif {
namespace {

bool isKnown(ChunkKind kind) {
    switch (kind) {
    case ChunkKind::zero:
    case ChunkKind::raw:
    case ChunkKind::ignore:
    case ChunkKind::adc:
    case ChunkKind::zlib:
    case ChunkKind::bzip2:
    case ChunkKind::lzfse:
    case ChunkKind::xz:
    case ChunkKind::comment:
    case ChunkKind::end:
        return true;
    }
    return false;
}

void requireSound(const Chunk& chunk, const ByteCursor& cursor) {
    if (!isKnown(chunk.kind)) {
        cursor.fail("expected a known kind of chunk, found " + std::to_string(static_cast<std::uint32_t>(chunk.kind)));
    }
    if (chunk.isCompressed() && (chunk.size() > chunkLimit || chunk.length > 2 * chunkLimit)) {
        cursor.fail("expected a compressed chunk of at most 32 MiB, found " + std::to_string(chunk.size()) + " bytes");
    }
    if (chunk.kind == ChunkKind::raw && chunk.length != chunk.size()) {
        cursor.fail("expected " + std::to_string(chunk.size()) + " bytes in a raw chunk, found " +
                    std::to_string(chunk.length));
    }
}

/// The sectors and offsets are still relative to those of the table.
Chunk readChunk(ByteCursor& cursor) {
    Chunk chunk;
    chunk.kind = static_cast<ChunkKind>(cursor.u32BigEndian());
    cursor.skip(4); // a comment
    chunk.firstSector = cursor.u64BigEndian();
    chunk.sectorCount = cursor.u64BigEndian();
    chunk.offset = cursor.u64BigEndian();
    chunk.length = cursor.u64BigEndian();
    return chunk;
}

void readChunks(ByteCursor& cursor, std::uint64_t dataOffset, BlockTable& table) {
    std::uint64_t next = 0;
    for (std::uint32_t left = cursor.u32BigEndian(); left > 0; --left) {
        Chunk chunk = readChunk(cursor);
        if (chunk.kind == ChunkKind::end) break;
        if (chunk.kind == ChunkKind::comment || chunk.sectorCount == 0) continue;
        if (chunk.firstSector != next || chunk.sectorCount > table.sectorCount - next) {
            cursor.fail("expected a chunk from sector " + std::to_string(next) + " to at most " +
                        std::to_string(table.sectorCount) + ", found one of " + std::to_string(chunk.sectorCount) +
                        " from " + std::to_string(chunk.firstSector));
        }
        requireSound(chunk, cursor);
        next += chunk.sectorCount;
        chunk.firstSector += table.firstSector;
        // A sum that overflows lies before the table's data, or outside the file, which is checked later.
        chunk.offset += dataOffset;
        table.chunks.push_back(chunk);
    }
    if (next != table.sectorCount) {
        cursor.fail("expected chunks of " + std::to_string(table.sectorCount) + " sectors, found " +
                    std::to_string(next));
    }
}

} // namespace

Checksum Checksum::read(std::string_view bytes) {
    ByteCursor cursor(bytes, "checksum");
    Checksum checksum;
    checksum.type = cursor.u32BigEndian();
    cursor.skip(4); // its bits
    checksum.value = cursor.u32BigEndian();
    return checksum;
}

BlockTable BlockTable::parse(std::string_view bytes, std::string name) {
    BlockTable table;
    const std::string format = "disk image, table " + name;
    ByteCursor cursor(bytes, format);
    cursor.expect("mish");
    if (const std::uint32_t version = cursor.u32BigEndian(); version != 1) {
        cursor.fail("expected version 1, found " + std::to_string(version));
    }
    table.firstSector = cursor.u64BigEndian();
    table.sectorCount = cursor.u64BigEndian();
    if (table.firstSector > sectorLimit || table.sectorCount > sectorLimit) cursor.fail("found too many sectors");
    const std::uint64_t dataOffset = cursor.u64BigEndian();
    cursor.skip(4 + 4 + 24); // sectors of a buffer, the number of the part, reserved
    table.checksum = Checksum::read(cursor.bytes(Checksum::size));
    readChunks(cursor, dataOffset, table);
    table.name = std::move(name);
    return table;
}

} // namespace corvane::Udif
