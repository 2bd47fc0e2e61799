#pragma once

#include "Platform/Formats/CodeSignature/CodeDirectory.hpp"
#include "Platform/Formats/NotarizationTicket/TicketStore.hpp"
#include "Support/FileURL.hpp"

#include <string>
#include <vector>

namespace corvane::CodeSignature {

/// The tickets that can speak for code.
struct CodeTickets {
    /// The stapled one and those that the system has met before.
    std::vector<NotarizationTicket> genuine;
    /// A ticket is stapled to the code, genuine or not.
    bool isStapled = false;
    /// Why the stapled one, or what the system has met, does not count; empty otherwise.
    std::string problem;

    /// Whether a genuine one names the code: its directory with SHA-256, or else the one that it has.
    bool name(const CodeDirectories& directories) const;

    /// @param path of a bundle, its main executable, or any other code
    static CodeTickets of(const FileURL& path, const TicketStore& store, const std::vector<TrustAnchor>& appleRoots);
};

} // namespace corvane::CodeSignature
