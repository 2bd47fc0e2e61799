#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/NotarizationTicket/TicketStore.hpp"
#include "Support/FileManager.hpp"
#include "Tests/Platform/Trust/TestAuthority.hpp"
#include "Tests/TestSupport.hpp"

#include <gtest/gtest.h>

#include <filesystem>

namespace corvane {
namespace {

using namespace TestSupport;

TEST(TicketStore, keepsGenuineTicketsClosedToOthers) {
    const World& world = World::shared();
    const std::vector<TrustAnchor> roots = world.trust().appleRoots;
    const std::vector<Certificate> carried{world.ticketAuthority.certificate};
    const std::string hash = "twenty bytes of hash";
    const std::string first = ticket(world.ticketSigner, carried, day(-100), 1, hash);
    const std::string second = ticket(world.ticketSigner, carried, day(-50), 2, hash);
    const std::string forged = ticket(world.adminInstaller, {}, day(-50), 2, hash);
    const Sandbox sandbox;
    const TicketStore store(sandbox / "state/tickets");
    EXPECT_TRUE(store.tickets(roots).empty());
    EXPECT_THROW(store.add(forged, roots), FormatError);
    EXPECT_THROW(store.add("not a ticket", roots), FormatError);
    EXPECT_FALSE(FileManager::fileExists(sandbox / "state"));
    for (const std::string& each : {first, second, first}) store.add(each, roots);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(sandbox.url())) {
        const unsigned mode = FileManager::itemStatus(entry.path()).st_mode & 07777U;
        EXPECT_EQ(mode, entry.is_directory() ? 0700U : 0600U) << entry.path();
    }
    sandbox.write("state/tickets/forged.ticket", forged);
    std::filesystem::create_directory(sandbox / "state/tickets/folder.ticket");
    for (const char* name : {"forged.ticket", "folder.ticket"}) {
        std::filesystem::permissions(sandbox / "state/tickets" / name, std::filesystem::perms(0700));
    }
    const std::vector<NotarizationTicket> found = store.tickets(roots);
    ASSERT_EQ(found.size(), 2U);
    EXPECT_NE(found[0].names(NotarizationTicket::HashType::sha1, hash),
              found[1].names(NotarizationTicket::HashType::sha1, hash));
    EXPECT_TRUE(store.tickets({}).empty());
    std::filesystem::permissions(sandbox / "state/tickets", std::filesystem::perms(0720));
    EXPECT_THROW(store.tickets(roots), FormatError);
}

} // namespace
} // namespace corvane
