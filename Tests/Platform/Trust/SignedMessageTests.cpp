#include "Platform/Formats/FormatError.hpp"
#include "Platform/Trust/BerReader.hpp"
#include "Platform/Trust/SignedMessage.hpp"
#include "Platform/Trust/TimestampToken.hpp"
#include "Tests/Platform/Trust/TestAuthority.hpp"
#include "Tests/TestSupport.hpp"

#include <algorithm>
#include <functional>

namespace corvane {
namespace {

using namespace TestSupport;

const std::string content = "twenty bytes of text";

bool verifies(const std::string& message, const std::string& over = content) {
    try {
        SignedMessage::parse(message, "test").verify(over);
        return true;
    } catch (const FormatError&) {
        return false;
    }
}

std::string replaced(std::string text, const std::string& part, const std::string& by) {
    const std::size_t at = text.find(part);
    if (at == std::string::npos) throw std::logic_error("the part is not there");
    return text.replace(at, part.size(), by);
}

/// The same message with its signed attributes backwards, in no order that an encoder would write, and signed so.
std::string reordered(const Issued& signer, const std::string& message) {
    const std::string start("\x31\x0b\x06\x09\x2a\x86\x48\x86\xf7\x0d\x01\x07\x01", 13);
    const std::string contentType = std::string("\x30\x18\x06\x09\x2a\x86\x48\x86\xf7\x0d\x01\x09\x03", 13) + start;
    const std::string attributes = message.substr(message.find(contentType));
    std::string forward, backward;
    for (BerReader reader(attributes, "test"); forward.size() < 0x69;) {
        const std::string each(reader.next().whole);
        forward += each;
        backward = each + backward;
    }
    const std::string set = std::string("\x31\x69", 2) + backward;
    return replaced(replaced(message, forward, backward), SignedMessage::parse(message, "test").signatureValue(),
                    plainSignature(signer, "SHA256", set));
}

TEST(SignedMessage, isVerified) {
    const World& world = World::shared();
    const Issued& rsa = world.rsaInstaller;
    const std::string message = signedMessage(rsa, {world.developerAuthority.certificate}, content);
    const std::string value = SignedMessage::parse(message, "test").signatureValue();
    std::string damaged = value;
    damaged[100] = static_cast<char>(damaged[100] ^ 1);
    const std::string messageDigest("\x06\x09\x2a\x86\x48\x86\xf7\x0d\x01\x09\x04", 11);
    const std::string signingTime("\x06\x09\x2a\x86\x48\x86\xf7\x0d\x01\x09\x05", 11);
    const struct {
        const char* name;
        std::string message;
        bool good;
    } cases[] = {
        {"RSA", message, true},
        {"elliptic", signedMessage(world.installer, {}, content), true},
        {"SHA-1", signedMessage(rsa, {}, content, {.digest = "SHA1"}), true},
        {"SHA-512", signedMessage(rsa, {}, content, {.digest = "SHA512"}), true},
        {"MD5", signedMessage(rsa, {}, content, {.digest = "MD5"}), false},
        {"without signed attributes", signedMessage(rsa, {}, content, {.signedAttributes = false}), true},
        {"a token without signed attributes",
         signedMessage(rsa, {}, content, {.signedAttributes = false, .isToken = true}), false},
        {"padded with zeros", message + std::string(500, '\0'), true},
        {"followed by bytes", message + '\0' + "x", false},
        {"attributes in another order", reordered(rsa, message), true},
        {"damaged signature", replaced(message, value, damaged), false},
        {"the digest twice, the time gone", replaced(message, signingTime, messageDigest), false},
        {"the digest gone", replaced(message, messageDigest, signingTime), false},
        {"signer's certificate replaced",
         replaced(message, rsa.certificate.der(), issue({"RSA Installer", {}, -1, 1, true}).certificate.der()), false},
    };
    for (const auto& each : cases) EXPECT_EQ(verifies(each.message), each.good) << each.name;
    EXPECT_FALSE(verifies(message, "other text, also 20."));
}

TEST(SignedMessage, isRefusedCutShort) {
    const std::string message = signedMessage(World::shared().installer, {}, content);
    for (std::size_t size = 0; size < message.size(); ++size) {
        EXPECT_THROW(SignedMessage::parse(message.substr(0, size), "test"), FormatError) << size;
    }
}

TEST(TimestampToken, isVerified) {
    const World& world = World::shared();
    const Issued impostor = issue({"Stamper", leafExtensions("timeStamping"), -10, 10}, &world.installer);
    const Issued twin =
        issue({.commonName = "Twin", .extensions = leafExtensions("timeStamping"), .serial = 7}, &world.root);
    const Issued otherTwin = issue({.commonName = "Twin",
                                    .extensions = leafExtensions("timeStamping"),
                                    .firstDay = -999,
                                    .ownKey = twin.key,
                                    .serial = 7},
                                   &world.root);
    enum Expected { trusted, untrusted, refused };
    const struct {
        const char* name;
        std::string token;
        Expected expected;
    } cases[] = {
        {"good", timestampToken(world.stamper, {}, content, day(-30)), trusted},
        {"administrator's", timestampToken(world.adminStamper, {}, content, day(-30)), trusted},
        {"over other bytes", timestampToken(world.stamper, {}, "other", day(-30)), refused},
        {"signer not named", timestampToken(world.stamper, {}, content, day(-30), false), refused},
        {"certificate of the same name, number and key in place of the one named",
         replaced(timestampToken(twin, {}, content, day(-30)), twin.certificate.der(), otherTwin.certificate.der()),
         refused},
        {"no authority of timestamps",
         timestampToken(world.installer, {world.developerAuthority.certificate}, content, day(-30)), untrusted},
        {"unknown root", timestampToken(impostor, {world.installer.certificate}, content, present), untrusted},
        {"when the authority had expired", timestampToken(world.stamper, {}, content, day(1001)), untrusted},
        {"no token", signedMessage(world.stamper, {}, content, {.detached = false}), refused},
        {"content of another kind", signedMessage(world.stamper, {}, content, {.detached = false, .isToken = true}),
         refused},
    };
    for (const auto& each : cases) {
        Expected found = refused;
        try {
            const auto token = TimestampToken::verify(each.token, content, world.trust());
            found = token.chain.isTrusted() ? trusted : untrusted;
            EXPECT_TRUE(found == untrusted || token.time == day(-30)) << each.name;
        } catch (const FormatError&) {
        }
        EXPECT_EQ(found, each.expected) << each.name;
    }
}

} // namespace
} // namespace corvane
