#pragma once

#include <optional>
#include <string_view>

/// The place of a ticket in a package: records behind the archive, each followed by a trailer of 16 bytes that says
/// what it is and how long. The records are found from the end of the file backwards.
namespace corvane::StapledTicket {

/// The bytes of the ticket among those that follow an archive; nothing when no trailer leads to one. Points into
/// `behindArchive`.
std::optional<std::string_view> find(std::string_view behindArchive);

} // namespace corvane::StapledTicket
