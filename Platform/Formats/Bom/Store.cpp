#include "Platform/Formats/Bom/Store.hpp"

#include "Platform/Formats/FormatError.hpp"

#include <algorithm>
#include <limits>

namespace corvane::Bom {
namespace {

constexpr std::string_view magic = "BOMStore";
constexpr std::uint32_t version = 1;
constexpr std::size_t headerSize = 512;
constexpr std::size_t chunkSize = std::size_t{1} << 20;

/// Numbers that the table has room for. Installers make it for 2,730 blocks, then for 43,690.
std::size_t slotCount(std::size_t needed) {
    for (const std::size_t usual : {std::size_t{2730}, std::size_t{43690}}) {
        if (needed <= usual) return usual;
    }
    return needed;
}

std::string variableArea(const std::vector<StoreBuilder::Variable>& variables) {
    std::string bytes;
    appendBigEndian(bytes, variables.size(), 4);
    for (const auto& variable : variables) {
        appendBigEndian(bytes, variable.block, 4);
        appendBigEndian(bytes, variable.name.size(), 1);
        bytes += variable.name;
    }
    return bytes;
}

} // namespace

Store::Store(std::string_view bytes) : bytes_(bytes) {
    ByteCursor header(bytes, "bom");
    header.expect(magic);
    if (const auto found = header.u32BigEndian(); found != version) {
        header.fail("expected version 1, found " + std::to_string(found));
    }
    header.u32BigEndian(); // how many blocks are in use
    const std::uint32_t tableOffset = header.u32BigEndian();
    const std::uint32_t tableLength = header.u32BigEndian();
    const std::uint32_t variablesOffset = header.u32BigEndian();
    const std::uint32_t variablesLength = header.u32BigEndian();
    readTable(area(tableOffset, tableLength, "block table"), tableOffset);
    readVariables(area(variablesOffset, variablesLength, "variables"), variablesOffset);
}

std::string_view Store::area(std::uint64_t offset, std::uint64_t length, std::string_view what) const {
    if (offset > bytes_.size() || length > bytes_.size() - offset) {
        throw FormatError("bom", offset,
                          "expected the " + std::string(what) + " of " + std::to_string(length) +
                              " bytes, found the end of the file at " + std::to_string(bytes_.size()));
    }
    return bytes_.substr(offset, length);
}

/// The list of free areas that follows the slots is only for whoever changes a file in place, and real ones are cut
/// short.
void Store::readTable(std::string_view bytes, std::uint64_t offset) {
    ByteCursor cursor(bytes, "bom", offset);
    const std::uint64_t slots = cursor.u32BigEndian();
    if (slots > cursor.remaining() / slotSize) {
        cursor.fail("expected a table of " + std::to_string(slots) + " blocks, found " +
                    std::to_string(cursor.remaining()) + " bytes");
    }
    table_ = cursor.bytes(slots * slotSize);
}

void Store::readVariables(std::string_view bytes, std::uint64_t offset) {
    ByteCursor cursor(bytes, "bom", offset);
    const std::uint32_t count = cursor.u32BigEndian();
    for (std::uint32_t index = 0; index < count; ++index) {
        const std::uint32_t number = cursor.u32BigEndian();
        const std::string name(cursor.bytes(cursor.u8()));
        if (!variables_.emplace(name, number).second) cursor.fail("expected one variable \"" + name + "\"");
    }
}

ByteCursor Store::block(std::uint32_t number) const {
    if (number == 0 || number >= blockCount()) {
        throw FormatError("bom: expected the number of a block, found " + std::to_string(number));
    }
    ByteCursor slot(table_.substr(std::size_t{number} * slotSize, slotSize), "bom");
    const std::uint32_t offset = slot.u32BigEndian();
    const std::uint32_t length = slot.u32BigEndian();
    return {area(offset, length, "block " + std::to_string(number)), "bom", offset};
}

std::uint32_t StoreBuilder::add(std::string_view bytes) {
    const std::uint32_t number = reserve();
    set(number, bytes);
    return number;
}

std::uint32_t StoreBuilder::reserve() {
    places_.emplace_back();
    return static_cast<std::uint32_t>(places_.size() - 1);
}

void StoreBuilder::set(std::uint32_t number, std::string_view bytes) {
    if (end_ + bytes.size() > std::numeric_limits<std::uint32_t>::max()) {
        throw FormatError("bom: expected at most 4 GiB of blocks");
    }
    if (chunks_.empty() || chunks_.back().bytes.size() + bytes.size() > chunkSize) {
        chunks_.push_back({end_, {}});
        chunks_.back().bytes.reserve(std::max(chunkSize, bytes.size()));
    }
    chunks_.back().bytes += bytes;
    places_[number] = {static_cast<std::uint32_t>(end_), static_cast<std::uint32_t>(bytes.size())};
    end_ += bytes.size();
}

std::string_view StoreBuilder::block(std::uint32_t number) const {
    const Place& place = places_[number];
    const auto after = std::upper_bound(chunks_.begin(), chunks_.end(), place.offset,
                                        [](std::uint64_t offset, const Chunk& chunk) { return offset < chunk.offset; });
    const Chunk& chunk = *std::prev(after);
    return std::string_view(chunk.bytes).substr(place.offset - chunk.offset, place.length);
}

void StoreBuilder::write(const std::vector<Variable>& variables,
                         const std::function<void(std::string_view)>& sink) const {
    const std::string variableBytes = variableArea(variables);
    const std::size_t slots = slotCount(places_.size());
    const std::uint64_t tableOffset = end_ + variableBytes.size();
    constexpr std::size_t emptyFreeList = 4 + 2 * 8;
    const std::uint64_t tableLength = 4 + slots * 8 + emptyFreeList;
    if (tableOffset + tableLength > std::numeric_limits<std::uint32_t>::max()) {
        throw FormatError("bom: expected at most 4 GiB");
    }
    std::string header(magic);
    for (const std::uint64_t field : {std::uint64_t{version}, std::uint64_t{places_.size() - 1}, tableOffset,
                                      tableLength, end_, std::uint64_t{variableBytes.size()}}) {
        appendBigEndian(header, field, 4);
    }
    header.resize(headerSize);
    sink(header);
    for (const Chunk& chunk : chunks_) sink(chunk.bytes);
    sink(variableBytes);

    std::string table;
    table.reserve(tableLength);
    appendBigEndian(table, slots, 4);
    for (const Place& place : places_) {
        appendBigEndian(table, place.offset, 4);
        appendBigEndian(table, place.length, 4);
    }
    table.resize(tableLength);
    sink(table);
}

} // namespace corvane::Bom
