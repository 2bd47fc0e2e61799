#include "Platform/Formats/FormatError.hpp"
#include "Platform/Trust/Certificate.hpp"
#include "Platform/Trust/MemoryBio.hpp"
#include "Support/FileManager.hpp"
#include "Tests/Platform/Trust/TestAuthority.hpp"
#include "Tests/TestSupport.hpp"

#include <openssl/pem.h>

namespace corvane {
namespace {

using namespace TestSupport;

std::string pem(const Certificate& certificate) {
    return OpenSSL::written([&](BIO* bio) { return PEM_write_bio_X509(bio, certificate.x509()); });
}

TEST(Certificate, readsBothEncodings) {
    const World& world = World::shared();
    const Certificate& installer = world.installer.certificate;
    const std::string both = "Some text\n" + pem(installer) + pem(world.root.certificate);
    EXPECT_EQ(Certificate::parse(installer.der(), "der"), installer);
    EXPECT_EQ(Certificate::parse(both, "pem"), installer);
    EXPECT_EQ(Certificate::parseAll(both, "pem"), (std::vector{installer, world.root.certificate}));
    EXPECT_EQ(installer.commonName(), "Installer");
    EXPECT_EQ(installer.issuerCommonName(), "Developer Authority");
    EXPECT_EQ(installer.notBefore(), day(-1000));
    EXPECT_EQ(installer.notAfter(), day(1000));
    EXPECT_EQ(installer.extensionText("1.2.840.113635.100.6.1.33"), "20210422000000Z");
    EXPECT_EQ(installer.extensionText("1.2.840.113635.100.6.1.14"), std::nullopt);
    EXPECT_TRUE(installer.isCritical("1.2.840.113635.100.6.1.14"));
    EXPECT_TRUE(installer.hasExtendedKeyUsage("1.2.840.113635.100.4.13"));
    EXPECT_FALSE(installer.hasExtendedKeyUsage("1.2.840.113635.100.4.1"));
}

TEST(Certificate, refusesWhatIsNone) {
    const std::string der = World::shared().installer.certificate.der();
    const std::string text = pem(World::shared().installer.certificate);
    std::string encrypted = text;
    encrypted.insert(encrypted.find('\n') + 1,
                     "Proc-Type: 4,ENCRYPTED\nDEK-Info: AES-128-CBC,00112233445566778899AABBCCDDEEFF\n\n");
    for (const std::string& bytes :
         {std::string(), std::string("-----BEGIN CERTIFICATE-----\nnonsense\n"), der + "x",
          der.substr(0, der.size() - 1), text + text.substr(0, text.size() / 2), encrypted}) {
        EXPECT_THROW(Certificate::parse(bytes, "test"), FormatError) << bytes;
    }
}

/// The other reader is the openssl program.
TEST(Certificate, agreesWithAnotherReaderOnRealCertificates) {
    CORVANE_REQUIRE_SAMPLES();
    for (const FileURL& url : FileManager::contentsOfDirectory(*samples() / "certs" / "leaf-samples")) {
        const Certificate certificate = Certificate::parse(read(url), url.string());
        const Outcome outcome =
            run({"openssl", "x509", "-inform", "der", "-in", url.string(), "-noout", "-fingerprint", "-sha256"});
        std::string expected = outcome.output;
        std::erase(expected, ':');
        EXPECT_NE(expected.find(upperHexadecimal(certificate.sha256())), std::string::npos) << url;
        EXPECT_EQ(certificate.hasExtension("1.2.840.113635.100.6.1.33"),
                  certificate.commonName().find("Developer ID") == 0)
            << url;
    }
}

} // namespace
} // namespace corvane
