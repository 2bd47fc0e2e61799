#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/NotarizationTicket/NotarizationTicket.hpp"
#include "Platform/Formats/NotarizationTicket/StapledTicket.hpp"
#include "Tests/Platform/Trust/TestAuthority.hpp"

#include <gtest/gtest.h>

namespace corvane {
namespace {

using namespace TestSupport;

const std::string hash = "twenty bytes of hash";

bool isGenuine(const std::string& bytes) {
    try {
        NotarizationTicket::parse(bytes).verify(World::shared().trust().appleRoots);
        return true;
    } catch (const FormatError&) {
        return false;
    }
}

TEST(NotarizationTicket, isVerified) {
    const World& world = World::shared();
    const std::vector<Certificate> carried{world.ticketAuthority.certificate};
    const std::string good = ticket(world.ticketSigner, carried, day(-100), 1, hash);
    const Issued unmarked = issue({"Unmarked", leafExtensions("codeSigning")}, &world.ticketAuthority);
    const auto marker = leafExtensions("codeSigning", "1.2.840.113635.100.6.1.30");
    const Issued fromDeveloper = issue({"Signer", marker}, &world.developerAuthority);
    const Issued otherAuthority = issue({"Other", authorityExtensions()}, &world.ticketRoot);
    const Issued fromOther = issue({"Signer", marker}, &otherAuthority);
    EXPECT_TRUE(isGenuine(good));
    EXPECT_TRUE(isGenuine(ticket(world.ticketSigner, {carried[0], world.ticketRoot.certificate}, day(-2), 1, hash)));
    const struct {
        const char* name;
        std::string bytes;
    } forgeries[] = {
        {"signer's certificate expired at the time", ticket(world.ticketSigner, carried, present, 1, hash)},
        {"signer without the marker", ticket(unmarked, carried, day(-2), 1, hash)},
        {"below a developer's authority",
         ticket(fromDeveloper, {world.developerAuthority.certificate}, day(-2), 1, hash)},
        {"below an authority without the marker", ticket(fromOther, {otherAuthority.certificate}, day(-2), 1, hash)},
        {"authority not carried", ticket(world.ticketSigner, {}, day(-2), 1, hash)},
        {"unknown root", ticket(world.adminInstaller, {}, day(-2), 1, hash)},
        {"followed by bytes", good + "x"},
    };
    for (const auto& each : forgeries) EXPECT_FALSE(isGenuine(each.bytes)) << each.name;
}

/// Every byte of a ticket counts but the padding of its signature.
TEST(NotarizationTicket, isRefusedWithAnyChange) {
    const World& world = World::shared();
    const std::string good = ticket(world.ticketSigner, {world.ticketAuthority.certificate}, day(-100), 1, hash);
    for (std::size_t size = 0; size + 73 < good.size(); ++size) EXPECT_FALSE(isGenuine(good.substr(0, size)));
    for (std::size_t at = 0; at < good.size() - 8; ++at) {
        std::string changed = good;
        changed[at] = static_cast<char>(changed[at] ^ 1);
        EXPECT_FALSE(isGenuine(changed)) << at;
    }
}

TEST(NotarizationTicket, namesDigests) {
    const World& world = World::shared();
    const auto parsed = NotarizationTicket::parse(ticket(world.ticketSigner, {}, day(-100), 2, hash));
    using HashType = NotarizationTicket::HashType;
    EXPECT_EQ(parsed.time(), day(-100));
    EXPECT_TRUE(parsed.names(HashType::sha256, hash + "the rest of it"));
    EXPECT_FALSE(parsed.names(HashType::sha1, hash));
    EXPECT_FALSE(parsed.names(HashType::sha256, "twenty bytes of hasp"));
    EXPECT_FALSE(parsed.names(HashType::sha256, hash.substr(0, 19)));
}

std::string trailer(int type, std::size_t length, int version = 1) {
    return "t8lr" + littleEndian(static_cast<std::uint64_t>(version), 2) +
           littleEndian(static_cast<std::uint64_t>(type), 2) + littleEndian(length, 4) + littleEndian(0, 4);
}

TEST(StapledTicket, isFoundFromTheEnd) {
    const struct {
        const char* name;
        std::string bytes;
        std::optional<std::string_view> found;
    } cases[] = {
        {"as written", trailer(1, 0) + "ticket" + trailer(2, 6), "ticket"},
        {"behind unused bytes", "unused" + trailer(1, 0) + "ticket" + trailer(2, 6), "ticket"},
        {"before a record of another type", trailer(1, 0) + "ticket" + trailer(2, 6) + "new" + trailer(9, 3), "ticket"},
        {"behind the terminator", "ticket" + trailer(2, 6) + trailer(1, 0), std::nullopt},
        {"longer than there is room", "ticket" + trailer(2, 7), std::nullopt},
        {"of another version", "ticket" + trailer(2, 6, 2), std::nullopt},
        {"followed by bytes", "ticket" + trailer(2, 6) + "x", std::nullopt},
        {"records of no length", trailer(9, 0) + trailer(9, 0), std::nullopt},
        {"nothing", "", std::nullopt},
    };
    for (const auto& each : cases) EXPECT_EQ(StapledTicket::find(each.bytes), each.found) << each.name;
}

} // namespace
} // namespace corvane
