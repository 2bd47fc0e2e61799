// Reads any bytes as a ticket, and as what follows an archive.

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/NotarizationTicket/NotarizationTicket.hpp"
#include "Platform/Formats/NotarizationTicket/StapledTicket.hpp"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace {

void read(std::string_view bytes) {
    using corvane::NotarizationTicket;
    try {
        const auto ticket = NotarizationTicket::parse(bytes);
        ticket.names(NotarizationTicket::HashType::sha256, bytes);
        ticket.verify();
    } catch (const corvane::FormatError&) {
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    read(bytes);
    if (const auto ticket = corvane::StapledTicket::find(bytes)) read(*ticket);
    return 0;
}
