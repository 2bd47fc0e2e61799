#include "Platform/Formats/Bom/PathRecord.hpp"

#include "Platform/Formats/Bom/Store.hpp"
#include "Platform/Formats/FormatError.hpp"

namespace corvane::Bom::PathRecord {
namespace {

/// The field behind the type: which records are whole, and how many architectures a file has.
constexpr std::uint16_t companionForm = 0x0001;
constexpr std::uint16_t ordinaryForm = 0x000F;
constexpr unsigned architectureShift = 12;
constexpr std::size_t architectureLimit = 15;

/// Zeros at the end of links and of Mach-O files.
constexpr std::size_t tailSize = 8;

void appendLink(std::string& record, const std::string& target) {
    appendBigEndian(record, target.size() + 1, 4);
    record += target;
    record.append(1 + tailSize, '\0');
}

void appendArchitectures(std::string& record, const std::vector<Architecture>& architectures) {
    appendBigEndian(record, 1, 1);
    appendBigEndian(record, architectures.size(), 4);
    for (const Architecture& each : architectures) {
        for (const std::uint32_t field : {each.cpuType, each.cpuSubtype, each.size, each.checksum}) {
            appendBigEndian(record, field, 4);
        }
    }
    record.append(tailSize, '\0');
}

/// What follows the checksum.
void appendRest(std::string& record, const Entry& entry) {
    if (entry.type == EntryType::symbolicLink) {
        appendLink(record, entry.linkTarget);
    } else if (!entry.architectures.empty()) {
        appendArchitectures(record, entry.architectures);
    } else {
        const bool isShort = entry.isCompanion || entry.type == EntryType::directory;
        record.append(isShort ? 4 : 8, '\0');
    }
}

void decodeLink(ByteCursor& record, Entry& entry) {
    if (record.remaining() < 4) return;
    const std::string_view text = record.bytes(record.u32BigEndian());
    entry.linkTarget = text.substr(0, text.find('\0'));
}

void decodeArchitectures(ByteCursor& record, Entry& entry) {
    if (record.remaining() < 5 || record.u8() == 0) return;
    const std::uint32_t count = record.u32BigEndian();
    if (count > architectureLimit) record.fail("expected at most 15 architectures, found " + std::to_string(count));
    for (std::uint32_t index = 0; index < count; ++index) {
        Architecture& each = entry.architectures.emplace_back();
        each.cpuType = record.u32BigEndian();
        each.cpuSubtype = record.u32BigEndian();
        each.size = record.u32BigEndian();
        each.checksum = record.u32BigEndian();
    }
}

EntryType entryType(ByteCursor& record) {
    const std::uint8_t type = record.u8();
    if (type < 1 || type > 4) record.fail("expected a type from 1 to 4, found " + std::to_string(type));
    return static_cast<EntryType>(type);
}

} // namespace

std::string encode(const Entry& entry) {
    if (entry.architectures.size() > architectureLimit) {
        throw FormatError("bom: expected at most 15 architectures in " + entry.path);
    }
    const std::size_t form =
        entry.isCompanion ? companionForm : ordinaryForm | (entry.architectures.size() << architectureShift);
    std::string record;
    appendBigEndian(record, static_cast<std::uint8_t>(entry.type), 1);
    appendBigEndian(record, 1, 1);
    appendBigEndian(record, form, 2);
    appendBigEndian(record, entry.mode, 2);
    appendBigEndian(record, entry.userID, 4);
    appendBigEndian(record, entry.groupID, 4);
    appendBigEndian(record, entry.modificationTime, 4);
    appendBigEndian(record, entry.size, 4);
    appendBigEndian(record, 1, 1);
    appendBigEndian(record, entry.checksum, 4);
    appendRest(record, entry);
    return record;
}

void decode(ByteCursor record, Entry& entry) {
    entry.type = entryType(record);
    record.u8();
    entry.isCompanion = record.u16BigEndian() == companionForm && entry.type == EntryType::file;
    entry.mode = record.u16BigEndian();
    entry.userID = record.u32BigEndian();
    entry.groupID = record.u32BigEndian();
    entry.modificationTime = record.u32BigEndian();
    entry.size = record.u32BigEndian();
    if (record.remaining() < 5) return;
    record.u8();
    entry.checksum = record.u32BigEndian();
    if (entry.type == EntryType::symbolicLink) decodeLink(record, entry);
    if (entry.type == EntryType::file) decodeArchitectures(record, entry);
}

} // namespace corvane::Bom::PathRecord
