#include "Platform/Formats/NotarizationTicket/StapledTicket.hpp"

#include "Platform/Formats/ByteCursor.hpp"

namespace corvane::StapledTicket {
namespace {

constexpr std::string_view magic = "t8lr";
constexpr std::size_t trailerSize = 16;

enum class RecordType : std::uint16_t { none = 0, terminator = 1, ticket = 2 };

} // namespace

std::optional<std::string_view> find(std::string_view behindArchive) {
    while (behindArchive.size() >= trailerSize) {
        const std::size_t start = behindArchive.size() - trailerSize;
        ByteCursor trailer(behindArchive.substr(start), "ticket trailer");
        if (trailer.bytes(magic.size()) != magic || trailer.u16LittleEndian() != 1) return std::nullopt;
        const auto type = static_cast<RecordType>(trailer.u16LittleEndian());
        const std::uint32_t length = trailer.u32LittleEndian();
        if (type == RecordType::none || type == RecordType::terminator || length > start) return std::nullopt;
        const std::string_view record = behindArchive.substr(start - length, length);
        if (type == RecordType::ticket) return record;
        behindArchive = behindArchive.substr(0, start - length);
    }
    return std::nullopt;
}

} // namespace corvane::StapledTicket
