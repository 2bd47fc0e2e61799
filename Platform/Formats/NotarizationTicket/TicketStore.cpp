#include "Platform/Formats/NotarizationTicket/TicketStore.hpp"

#include "Platform/Formats/Digest.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Trust/PrivateFiles.hpp"
#include "Support/FileManager.hpp"

namespace corvane {
namespace {

constexpr std::string_view extension = "ticket";
/// Real tickets have some kilobytes.
constexpr std::uint64_t ticketLimit = std::uint64_t{16} << 20;

std::optional<NotarizationTicket> genuineTicket(std::string_view bytes, const std::vector<TrustAnchor>& appleRoots) {
    try {
        NotarizationTicket ticket = NotarizationTicket::parse(bytes);
        ticket.verify(appleRoots);
        return ticket;
    } catch (const FormatError&) {
        return std::nullopt;
    }
}

bool isPlainFile(const FileURL& url) {
    const struct stat status = FileManager::itemStatus(url);
    return S_ISREG(status.st_mode) && static_cast<std::uint64_t>(status.st_size) <= ticketLimit;
}

} // namespace

TicketStore TicketStore::ofUser() {
    return TicketStore(PrivateFiles::baseFolder("XDG_STATE_HOME", "~/.local/state") / "corvane" / "tickets");
}

void TicketStore::add(std::string_view ticket, const std::vector<TrustAnchor>& appleRoots) const {
    if (ticket.size() > ticketLimit) throw FormatError("ticket: too large");
    NotarizationTicket::parse(ticket).verify(appleRoots);
    const std::string name = upperHexadecimal(digest(DigestKind::sha256, ticket)) + "." + std::string(extension);
    FileManager::createPrivateDirectory(deletingLastPathComponent(folder_));
    PrivateFiles::write(folder_ / name, ticket);
}

std::vector<NotarizationTicket> TicketStore::tickets(const std::vector<TrustAnchor>& appleRoots) const {
    std::vector<NotarizationTicket> found;
    for (const FileURL& url : PrivateFiles::list(folder_, extension, PrivateFiles::writableByOthers)) {
        if (!isPlainFile(url)) continue;
        if (auto ticket = genuineTicket(FileManager::readFile(url, ticketLimit), appleRoots)) {
            found.push_back(*std::move(ticket));
        }
    }
    return found;
}

} // namespace corvane
