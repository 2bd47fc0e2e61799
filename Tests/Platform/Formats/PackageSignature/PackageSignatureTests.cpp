#include "Platform/Formats/PackageSignature/InstallAssessment.hpp"
#include "Platform/Formats/PackageSignature/PackageSignature.hpp"
#include "Platform/Formats/PackageSignature/SignatureSummary.hpp"
#include "Tests/Platform/Formats/PackageSignature/TestPackage.hpp"
#include "Tests/TestSupport.hpp"

#include <regex>

namespace corvane {
namespace {

using namespace TestSupport;

constexpr const char* developerID = "signed by a developer certificate issued by Apple for distribution";
constexpr const char* developer = "signed by a developer certificate issued by Apple";
constexpr const char* thisSystem = "signed by a certificate trusted by this system";
constexpr const char* untrusted = "signed by untrusted certificate";
constexpr const char* expired = "signed by a certificate that has since expired";
constexpr const char* wrongChecksum = "package is invalid (checksum did not verify)";
constexpr const char* wrongSignature = "package is invalid (signature did not verify)";
constexpr const char* noTicket = "rejected: no stapled ticket; no online lookup was done";

struct Case {
    std::string name;
    std::string bytes;
    std::string status;
    /// "accepted: " or "rejected: " with the rule or reason; empty where a broken seal leaves nothing to assess.
    std::string assessment;
    std::optional<Time> timestamp = std::nullopt;
    bool notarized = false;
};

PackageSignature evaluate(const std::string& bytes) {
    const Sandbox sandbox;
    const auto archive = Xar::Archive::openUnverified(sandbox.write("a.pkg", bytes));
    return PackageSignature::evaluate(archive, World::shared().trust());
}

std::string assessment(const PackageSignature& signature) {
    if (signature.seal == PackageSignature::Seal::contentsChanged || signature.seal == PackageSignature::Seal::broken) {
        return "";
    }
    const auto result = InstallAssessment::of(signature);
    return (result.accepted ? "accepted: " : "rejected: ") + result.reason;
}

void check(const std::vector<Case>& cases) {
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        const PackageSignature signature = evaluate(each.bytes);
        const auto summary = SignatureSummary::of("a.pkg", signature);
        EXPECT_EQ(summary.status, each.status) << signature.problem;
        EXPECT_EQ(summary.isTrusted,
                  each.status.find("signed") == 0 && each.status != untrusted && each.status != expired);
        EXPECT_EQ(assessment(signature), each.assessment);
        EXPECT_EQ(signature.timestamp, each.timestamp);
        EXPECT_EQ(signature.notarized, each.notarized) << signature.ticketProblem;
    }
}

/// A package with a CMS signature by a developer, timestamped if a stamper is given.
PackageShape shape(const Issued& signer, const Issued* stamper = nullptr, Time time = day(-150)) {
    return {.messageSigner = &signer,
            .message = {.digest = "SHA1", .stamper = stamper, .stampedAt = time},
            .carried = {World::shared().developerAuthority.certificate}};
}

std::string signedBy(const Issued& signer, const Issued* stamper = nullptr, Time time = day(-150)) {
    return makePackage(shape(signer, stamper, time)).bytes;
}

std::string flipped(std::string bytes, std::size_t at) {
    bytes[at] = static_cast<char>(bytes[at] ^ 1);
    return bytes;
}

TEST(PackageSignature, followsChainAndTimestamp) {
    const World& world = World::shared();
    const Issued& stamper = world.stamper;
    const Issued stranger = issue({"Stranger", {}});
    const Issued appleStore =
        issue({"Store", leafExtensions("1.2.840.113635.100.4.9", "1.2.840.113635.100.6.1.10")}, &world.root);
    const Issued relations = issue({"Relations", authorityExtensions("1.2.840.113635.100.6.2.1")}, &world.root);
    const Issued thirdParty =
        issue({"Third Party", leafExtensions("1.2.840.113635.100.4.9", "1.2.840.113635.100.6.1.8")}, &relations);
    const Issued updates = issue({"Apple Software Update Certification Authority", authorityExtensions()}, &world.root);
    const Issued update = issue({"Update", leafExtensions("1.2.840.113635.100.4.1")}, &updates);
    const auto below = [](const Issued& signer, const Issued& authority) {
        PackageShape other = shape(signer);
        other.carried = {authority.certificate};
        return makePackage(other).bytes;
    };
    const std::string isExpired = std::string("rejected: ") + expired;
    const std::string missing =
        "rejected: untrusted certificate, the certificate of its issuer, Developer Authority, is missing";
    check({
        {"unsigned", makePackage({}).bytes, "no signature", "rejected: no usable signature"},
        {"without a timestamp", signedBy(world.installer), developerID, noTicket},
        {"with a timestamp", signedBy(world.installer, &stamper), developerID, noTicket, day(-150)},
        {"expired", signedBy(world.expiredInstaller), expired, isExpired},
        {"expired since its timestamp", signedBy(world.expiredInstaller, &stamper), developerID, noTicket, day(-150)},
        {"expired before its timestamp", signedBy(world.expiredInstaller, &stamper, day(-50)), expired, isExpired,
         day(-50)},
        {"Apple's chain, administrator's timestamp", signedBy(world.expiredInstaller, &world.adminStamper), expired,
         isExpired},
        {"timestamp by nobody", signedBy(world.expiredInstaller, &stranger), expired, isExpired},
        {"administrator's root", signedBy(world.adminInstaller), thisSystem, "rejected: not issued by Apple"},
        {"administrator's timestamp", signedBy(world.adminInstaller, &world.adminStamper), thisSystem,
         "rejected: not issued by Apple", day(-150)},
        {"administrator's root, Apple's timestamp", signedBy(world.adminInstaller, &stamper), thisSystem,
         "rejected: not issued by Apple", day(-150)},
        {"unknown root", signedBy(stranger), untrusted,
         "rejected: untrusted certificate, the root Stranger is not trusted"},
        {"issuer not carried", below(world.installer, stranger), untrusted, missing},
        {"signed before notarization", signedBy(world.legacyInstaller, &stamper, day(-2600)), developerID,
         "accepted: Developer ID", day(-2600)},
        {"old developer, signed later", signedBy(world.legacyInstaller, &stamper), developerID, noTicket, day(-150)},
        {"old developer, no timestamp", signedBy(world.legacyInstaller), developerID, noTicket},
        {"store", signedBy(appleStore), thisSystem, "accepted: Mac App Store"},
        {"other developer", below(thirdParty, relations), developer, "rejected: not signed with a Developer ID"},
        {"Apple's own", below(update, updates), "signed Apple Software", "accepted: Apple Installer"},
    });
}

TEST(PackageSignature, needsAnIntactSeal) {
    const World& world = World::shared();
    const Issued& rsa = world.rsaInstaller;
    const std::vector<Certificate> carried{world.developerAuthority.certificate};
    PackageShape both = shape(rsa);
    both.rsaSigner = &rsa;
    PackageShape wrongRSA = both, wrongMessage = both, foreignToken = shape(rsa, &world.stamper);
    wrongRSA.wrongRSA = true;
    wrongMessage.wrongMessage = true;
    foreignToken.message.stampsOtherBytes = true;
    PackageShape sha256 = shape(rsa), sha512 = shape(rsa), md5 = shape(rsa), withContent = shape(rsa);
    sha256.kind = DigestKind::sha256;
    sha512.kind = DigestKind::sha512;
    md5.kind = DigestKind::md5;
    withContent.message.detached = false;
    const auto rsaOnly = [&](DigestKind kind, bool doubled, bool wrong = false) {
        return makePackage(
                   {.kind = kind, .rsaSigner = &rsa, .doubledRSA = doubled, .carried = carried, .wrongRSA = wrong})
            .bytes;
    };
    const TestPackage good = makePackage(shape(rsa));
    check({
        {"RSA and CMS", makePackage(both).bytes, developerID, noTicket},
        {"wrong RSA beside a good CMS", makePackage(wrongRSA).bytes, developerID, noTicket},
        {"wrong CMS beside a good RSA", makePackage(wrongMessage).bytes, wrongSignature, ""},
        {"CMS with its content in it", makePackage(withContent).bytes, wrongSignature, ""},
        {"timestamp of another signature", makePackage(foreignToken).bytes, wrongSignature, ""},
        {"RSA", rsaOnly(DigestKind::sha1, false), developerID, noTicket},
        {"RSA over a checksum hashed again", rsaOnly(DigestKind::sha1, true), developerID, noTicket},
        {"RSA over SHA-256", rsaOnly(DigestKind::sha256, false), developerID, noTicket},
        {"RSA over SHA-256 hashed again", rsaOnly(DigestKind::sha256, true), wrongSignature, ""},
        {"wrong RSA", rsaOnly(DigestKind::sha1, false, true), wrongSignature, ""},
        {"SHA-256", makePackage(sha256).bytes, developerID, noTicket},
        {"SHA-512", makePackage(sha512).bytes, developerID, noTicket},
        {"MD5", makePackage(md5).bytes, wrongSignature, ""},
        {"file changed", flipped(good.bytes, good.bytes.size() - 1), wrongChecksum,
         "rejected: xar: the checksum of Payload is wrong"},
        {"checksum changed", flipped(good.bytes, good.heapOffset), wrongChecksum, ""},
        {"signature room overwritten", flipped(good.bytes, good.heapOffset + 20 + 9000), wrongSignature, ""},
    });
}

TEST(PackageSignature, coversEveryFile) {
    const auto check = [](std::vector<PackageFile> files, bool isSigned, const std::string& problem) {
        PackageShape package = isSigned ? shape(World::shared().installer) : PackageShape{};
        package.files = std::move(files);
        EXPECT_EQ(evaluate(makePackage(package).bytes).problem, problem);
    };
    const std::string large(3 << 20, 'x');
    check({{"a", large}, {"b", large + "y"}, {"c", ""}, {"d", large + "z"}}, true, "");
    check({{"a", large}, {"b", large, std::string(40, '0')}, {"c", large}}, true, "xar: the checksum of b is wrong");
    check({{"a", "text", ""}}, true, "xar: a has no checksum");
    check({{"a", "text", ""}}, false, "");
    check({{"a", "same"}, {"b", "same", std::nullopt, -4}}, true, "");
    check({{"a", "xxxx"}, {"b", "xxxx", std::nullopt, -2}}, true, "xar: the data of a and b overlap");
}

TEST(PackageSignature, takesOnlyItsOwnTicket) {
    const World& world = World::shared();
    const std::vector<Certificate> carried{world.ticketAuthority.certificate};
    const auto make = [&](DigestKind kind, int hashType, const Issued& signer, bool own) {
        PackageShape package = shape(world.installer, &world.stamper);
        package.kind = kind;
        const TestPackage made = makePackage(package);
        const std::string digest = own ? made.checksum : std::string(20, 'x');
        return made.bytes + stapled(ticket(signer, carried, day(-100), hashType, digest));
    };
    const auto sha1 = DigestKind::sha1;
    const std::string genuine = make(sha1, 1, world.ticketSigner, true);
    const std::string foreign = "rejected: the stapled ticket is for another package; no online lookup was done";
    const std::string forged = "rejected: the stapled ticket is not genuine, ticket: not signed by the notary service: "
                               "the certificate of its issuer, Developer Authority, is missing; "
                               "no online lookup was done";
    const std::string accepted = "accepted: Notarized Developer ID";
    check({
        {"genuine", genuine, developerID, accepted, day(-150), true},
        {"SHA-256", make(DigestKind::sha256, 2, world.ticketSigner, true), developerID, accepted, day(-150), true},
        {"of another package", make(sha1, 1, world.ticketSigner, false), developerID, foreign, day(-150)},
        {"for another kind of digest", make(sha1, 2, world.ticketSigner, true), developerID, foreign, day(-150)},
        {"forged", make(sha1, 1, world.installer, true), developerID, forged, day(-150)},
        {"behind it other bytes", genuine + "x", developerID, noTicket, day(-150)},
        {"on an administrator's package", signedBy(world.adminInstaller) + genuine.substr(genuine.find("t8lr")),
         thisSystem, "rejected: not issued by Apple"},
    });
}

/// The layout, with the lines of fingerprints replaced by the number of bytes in them.
TEST(SignatureSummary, printsTheChain) {
    const auto signature = evaluate(signedBy(World::shared().installer, &World::shared().stamper));
    std::string text = SignatureSummary::of("a.pkg", signature).text;
    std::string digits = text;
    std::erase(digits, ' ');
    std::erase(digits, '\n');
    EXPECT_NE(digits.find(":" + upperHexadecimal(signature.leaf().sha256()) + "-"), std::string::npos);
    text = std::regex_replace(
        text, std::regex(" {11}[0-9A-F]{2}( [0-9A-F]{2}){21}\n {11}[0-9A-F]{2}( [0-9A-F]{2}){9}\n"), "22, 10\n");
    const std::string line = "       " + std::string(72, '-') + "\n";
    EXPECT_EQ(text, "Package \"a.pkg\":\n"
                    "   Status: signed by a developer certificate issued by Apple for distribution\n"
                    "   Signed with a trusted timestamp on: 2025-08-04 00:00:00 +0000\n"
                    "   Certificate Chain:\n"
                    "    1. Installer\n"
                    "       Expires: 2028-09-27 00:00:00 +0000\n"
                    "       SHA256 Fingerprint:\n22, 10\n" +
                        line +
                        "    2. Developer Authority\n"
                        "       Expires: 2039-09-10 00:00:00 +0000\n"
                        "       SHA256 Fingerprint:\n22, 10\n" +
                        line +
                        "    3. Trusted Root\n"
                        "       Expires: 2039-09-10 00:00:00 +0000\n"
                        "       SHA256 Fingerprint:\n22, 10\n"
                        "\n");
}

} // namespace
} // namespace corvane
