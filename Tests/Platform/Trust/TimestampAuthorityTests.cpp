#include "Platform/Trust/Keychain.hpp"
#include "Platform/Trust/TimestampAuthority.hpp"
#include "Tests/TestHierarchy.hpp"
#include "Tests/TestSupport.hpp"
#include "Tests/TimestampServer.hpp"

#include <optional>

namespace corvane {
namespace {

using TestSupport::run;
using TestSupport::Sandbox;
using TestSupport::TestHierarchy;
using TestSupport::TimestampBehaviour;
using TestSupport::TimestampServer;
using Kind = TimestampError::Kind;

TrustSettings trustingTheTestRoot() {
    return {.extraRoots = {Certificate::parse(TestHierarchy::shared().root().certificate, "root")},
            .now = currentTime()};
}

TEST(TimestampAuthority, givesTokensThatOpensslAccepts) {
    const Sandbox sandbox;
    const TimestampServer server;
    const std::string value = "a signature value";
    for (const DigestKind digest : {DigestKind::sha1, DigestKind::sha256, DigestKind::sha512}) {
        const std::string token =
            TimestampAuthority{.address = server.url()}.token(value, digest, trustingTheTestRoot());
        const auto outcome = run({"openssl", "ts", "-verify", "-token_in", "-in", sandbox.write("token", token),
                                  "-data", sandbox.write("data", value), "-CAfile",
                                  sandbox.write("root.pem", TestHierarchy::shared().root().certificate)});
        EXPECT_EQ(outcome.status, 0) << outcome.output << outcome.errors;
    }
    EXPECT_EQ(server.requestCount(), 3);
}

TEST(TimestampAuthority, tellsApartWhyThereIsNoToken) {
    using enum TimestampBehaviour;
    const struct {
        TimestampBehaviour behaviour;
        Kind kind;
        std::string cause;
    } cases[] = {
        {refusing, Kind::serviceNotAvailable, "refused"},
        {unavailable, Kind::serviceNotAvailable, "HTTP status 503"},
        {redirect, Kind::serviceNotAvailable, "HTTP status 301"},
        {oversized, Kind::serviceNotAvailable, "more than 1048576 bytes"},
        {silent, Kind::serviceNotAvailable, "timed out"},
        {rejected, Kind::missing, "status 2"},
        {withoutToken, Kind::missing, "no complete reply"},
        {webPage, Kind::missing, "no complete reply"},
        {wrongNonce, Kind::notValid, "another request"},
        {wrongImprint, Kind::notValid, "another signature"},
        {damaged, Kind::notValid, "does not verify"},
        {stranger, Kind::notTrusted, "issuer"},
    };
    for (const auto& expected : cases) {
        const TimestampServer server({expected.behaviour});
        TimestampAuthority authority{.address = server.url()};
        if (expected.behaviour == silent) authority.limits.total = std::chrono::milliseconds(200);
        try {
            authority.token("value", DigestKind::sha1, trustingTheTestRoot());
            ADD_FAILURE() << "a token where " << expected.cause << " was expected";
        } catch (const TimestampError& error) {
            EXPECT_EQ(error.kind(), expected.kind) << error.what();
            EXPECT_NE(std::string(error.what()).find(expected.cause), std::string::npos) << error.what();
            EXPECT_TRUE(std::string(error.what()).starts_with(server.url())) << error.what();
        }
    }
}

} // namespace
} // namespace corvane
