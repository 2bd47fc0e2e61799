#include "Platform/Formats/CodeVerification/CodeTickets.hpp"

#include "Platform/Formats/CodeBundle/BundleLayout.hpp"
#include "Platform/Formats/CodeBundle/FileKind.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Support/FileError.hpp"
#include "Support/FileManager.hpp"

#include <algorithm>
#include <stdexcept>

namespace corvane::CodeSignature {
namespace {

/// Real tickets have less than two kilobytes.
constexpr std::uint64_t ticketLimit = std::uint64_t{1} << 20;

std::optional<BundleLayout> bundle(const FileURL& path) try {
    return FileManager::isDirectory(path) ? BundleLayout::of(path) : BundleLayout::whoseExecutableIs(path);
} catch (const PropertyList::Error&) {
    return std::nullopt;
}

} // namespace

bool CodeTickets::name(const CodeDirectories& directories) const {
    using HashType = NotarizationTicket::HashType;
    const auto isSHA256 = [](const CodeDirectory& each) { return each.hashType() == CodeDirectory::HashType::sha256; };
    const auto found = std::find_if(directories.all.begin(), directories.all.end(), isSHA256);
    const CodeDirectory& named = found == directories.all.end() ? directories.best() : *found;
    const HashType type = named.hashType() == CodeDirectory::HashType::sha1 ? HashType::sha1 : HashType::sha256;
    return std::any_of(genuine.begin(), genuine.end(),
                       [&](const NotarizationTicket& ticket) { return ticket.names(type, named.cdhash()); });
}

CodeTickets CodeTickets::of(const FileURL& path, const TicketStore& store, const std::vector<TrustAnchor>& appleRoots) {
    CodeTickets tickets;
    try {
        tickets.genuine = store.tickets(appleRoots);
    } catch (const std::runtime_error& error) {
        // Good code stays good; what a ticket would have spoken for is rejected for this reason.
        tickets.problem = error.what();
    }
    const auto layout = bundle(path);
    // Signatures without a folder of their own have their sealed resources in that place.
    if (!layout || layout->sealedResourcesURL() == layout->ticketURL()) return tickets;
    // Reading a pipe would wait forever.
    if (!FileKind::leadsToFile(layout->ticketURL())) return tickets;
    tickets.isStapled = true;
    try {
        const std::string bytes = FileManager::readFile(layout->ticketURL(), ticketLimit);
        NotarizationTicket ticket = NotarizationTicket::parse(bytes);
        ticket.verify(appleRoots);
        tickets.genuine.push_back(std::move(ticket));
    } catch (const FormatError& error) {
        tickets.problem = std::string("the stapled ticket is not genuine, ") + error.what();
    } catch (const FileError& error) {
        tickets.problem = "the stapled ticket cannot be read, " + error.code().message();
    }
    return tickets;
}

} // namespace corvane::CodeSignature
