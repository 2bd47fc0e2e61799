#include "Platform/Trust/CertificateChain.hpp"
#include "Tests/Platform/Trust/TestAuthority.hpp"

#include <gtest/gtest.h>

namespace corvane {
namespace {

using namespace TestSupport;

enum class Expected { apple, administrator, expired, refused };

Expected outcome(const CertificateChain& chain) {
    if (!chain.problem.empty() || chain.owner == AnchorOwner::nobody) return Expected::refused;
    if (chain.expired) return Expected::expired;
    return chain.owner == AnchorOwner::apple ? Expected::apple : Expected::administrator;
}

struct Case {
    const char* name;
    Issued leaf;
    std::vector<Certificate> carried;
    Expected expected;
    ChainPurpose purpose = ChainPurpose::packageSigning;
    Time time = present;
};

const Extensions installerExtensions = leafExtensions("1.2.840.113635.100.4.13", "1.2.840.113635.100.6.1.14");

Issued leafOf(const Issued& issuer) { return issue({"Leaf", installerExtensions}, &issuer); }

/// A leaf below an authority of a certain shape.
Case below(const char* name, const Extensions& authority) {
    const Issued middle = issue({"Middle", authority}, &World::shared().root);
    return {name, leafOf(middle), {middle.certificate}, Expected::refused};
}

/// A leaf of a certain shape below the root.
Case shaped(const char* name, const Extensions& extensions, Expected expected,
            ChainPurpose purpose = ChainPurpose::packageSigning) {
    return {name, issue({"Leaf", extensions}, &World::shared().root), {}, expected, purpose};
}

Extensions with(Extensions extensions, const char* name, const char* value) {
    extensions.emplace_back(name, value);
    return extensions;
}

std::vector<Case> pathCases() {
    const World& world = World::shared();
    const Certificate middle = world.developerAuthority.certificate;
    const Issued impostor = issue({"Trusted Root", authorityExtensions()});
    const Issued forged = issue({.commonName = "Forged", .extensions = installerExtensions, .otherKey = impostor.key},
                                &world.developerAuthority);
    const Issued deep = issue({"Deep", authorityExtensions()}, &world.developerAuthority);
    const Issued bounded = issue({"Bounded", {{"basicConstraints", "critical,CA:TRUE,pathlen:0"}}}, &world.root);
    const Issued belowBounded = issue({"Below", authorityExtensions()}, &bounded);
    const Issued former = issue({"Former", authorityExtensions(), -1000, -10}, &world.root);
    const auto signing = ChainPurpose::packageSigning;
    return {
        {"root not carried", world.installer, {middle}, Expected::apple},
        {"root carried", world.installer, {world.root.certificate, middle}, Expected::apple},
        {"administrator's root", world.adminInstaller, {}, Expected::administrator},
        {"another authority between", leafOf(deep), {deep.certificate, middle}, Expected::apple},
        {"issuer missing", world.installer, {world.root.certificate}, Expected::refused},
        {"root of the same name, other key", leafOf(impostor), {impostor.certificate}, Expected::refused},
        {"signed with another key than the issuer's", forged, {middle}, Expected::refused},
        {"leaf expired", world.expiredInstaller, {middle}, Expected::expired},
        {"leaf not yet expired", world.expiredInstaller, {middle}, Expected::apple, signing, day(-200)},
        {"leaf not yet valid", world.installer, {middle}, Expected::refused, signing, day(-1001)},
        {"authority expired", leafOf(former), {former.certificate}, Expected::expired},
        {"path too long", leafOf(belowBounded), {belowBounded.certificate, bounded.certificate}, Expected::refused},
    };
}

std::vector<Case> shapeCases() {
    const auto stamping = ChainPurpose::timestamping;
    return {
        below("issuer is no authority", {{"basicConstraints", "critical,CA:FALSE"}}),
        below("issuer does not say that it is an authority", {{"keyUsage", "keyCertSign"}}),
        below("issuer must not sign certificates", {{"basicConstraints", "critical,CA:TRUE"}, {"keyUsage", "cRLSign"}}),
        shaped("unknown critical extension",
               with(installerExtensions, "1.2.840.113635.100.6.1.99", "critical,DER:05:00"), Expected::refused),
        shaped("known critical extension", with(installerExtensions, "1.2.840.113635.100.6.1.18", "critical,DER:05:00"),
               Expected::apple),
        shaped("no usages stated", {}, Expected::apple),
        shaped("code signing", leafExtensions("codeSigning"), Expected::apple),
        shaped("only for servers", leafExtensions("serverAuth"), Expected::refused),
        shaped("not for signing data", {{"keyUsage", "keyAgreement"}}, Expected::refused),
        shaped("timestamps", leafExtensions("timeStamping"), Expected::apple, stamping),
        shaped("timestamps, not critical", {{"extendedKeyUsage", "timeStamping"}}, Expected::refused, stamping),
        shaped("installer for timestamps", installerExtensions, Expected::refused, stamping),
    };
}

void check(const std::vector<Case>& cases) {
    for (const Case& each : cases) {
        const CertificateChain chain =
            evaluateChain(each.leaf.certificate, each.carried, World::shared().trust(), each.time, each.purpose);
        EXPECT_EQ(outcome(chain), each.expected) << each.name << ": " << chain.problem;
    }
}

TEST(CertificateChain, judgesPaths) { check(pathCases()); }
TEST(CertificateChain, judgesShapes) { check(shapeCases()); }

/// A root certificate made anew with the same name and key anchors the same chains.
TEST(CertificateChain, endsAtNameAndKey) {
    const World& world = World::shared();
    const Issued again =
        issue({.commonName = "Trusted Root", .extensions = authorityExtensions(), .ownKey = world.root.key});
    TrustSettings trust = world.trust();
    trust.appleRoots = {TrustAnchor::of(again.certificate)};
    const std::vector<Certificate> carried{world.developerAuthority.certificate, world.root.certificate};
    const auto chain =
        evaluateChain(world.installer.certificate, carried, trust, present, ChainPurpose::packageSigning);
    EXPECT_EQ(outcome(chain), Expected::apple) << chain.problem;
    EXPECT_EQ(chain.certificates, (std::vector{world.installer.certificate, world.developerAuthority.certificate}));
    EXPECT_TRUE(chain.intermediateHasExtension("1.2.840.113635.100.6.2.6"));
    EXPECT_EQ(chain.anchor->certificate, again.certificate);
}

} // namespace
} // namespace corvane
