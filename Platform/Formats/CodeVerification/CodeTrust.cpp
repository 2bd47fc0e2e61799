#include "Platform/Formats/CodeVerification/CodeTrust.hpp"

#include "Platform/Trust/Keychain.hpp"

namespace corvane::CodeSignature {

CodeTrust CodeTrust::ofUser(const FileURL& path) {
    TrustSettings settings = Keychain::ofUser().trustSettings(currentTime());
    CodeTickets tickets = CodeTickets::of(path, TicketStore::ofUser(), settings.appleRoots);
    return {.settings = std::move(settings), .tickets = std::move(tickets)};
}

} // namespace corvane::CodeSignature
