#pragma once

#include "Platform/Formats/NotarizationTicket/NotarizationTicket.hpp"
#include "Support/FileURL.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace corvane {

/// The tickets that this user's system has met: those stapled to disk images that were attached. A Mac keeps them as
/// well, so that what comes from a stapled image counts as notarized wherever it is copied. Files "<SHA256>.ticket" in
/// a folder closed to other users (0700, files 0600), each written whole.
class TicketStore {
  public:
    explicit TicketStore(FileURL folder) : folder_(std::move(folder)) {}
    /// ${XDG_STATE_HOME:-~/.local/state}/corvane/tickets
    static TicketStore ofUser();

    /// Keeps a ticket. @throws FormatError when it is not genuine, FileError
    void add(std::string_view ticket, const std::vector<TrustAnchor>& appleRoots = AppleRoots::pinned()) const;
    /// Every genuine ticket of the store; others are passed over. A folder that is not there is empty.
    /// @throws FileError, FormatError when other users can write to the store
    std::vector<NotarizationTicket> tickets(const std::vector<TrustAnchor>& appleRoots = AppleRoots::pinned()) const;

  private:
    FileURL folder_;
};

} // namespace corvane
