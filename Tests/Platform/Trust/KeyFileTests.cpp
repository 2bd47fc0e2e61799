#include "Platform/Formats/FormatError.hpp"
#include "Platform/Trust/KeyFile.hpp"
#include "Tests/TestHierarchy.hpp"
#include "Tests/TestSupport.hpp"

namespace corvane {
namespace {

using TestSupport::TestHierarchy;

TestHierarchy& hierarchy() { return TestHierarchy::shared(); }

/// The error of reading a file, or "" and the file's identities as fingerprints with the length of their chain.
struct Reading {
    std::string error;
    std::vector<std::pair<std::string, std::size_t>> identities;
    int questions = 0;
};

Reading read(const std::string& bytes, const std::string& passphrase) {
    Reading reading;
    const auto source = [&] {
        ++reading.questions;
        return passphrase;
    };
    try {
        for (const Identity& identity : KeyFile::parse(bytes, "FILE", source).identities("FILE")) {
            EXPECT_TRUE(identity.key.belongsTo(identity.certificate));
            reading.identities.emplace_back(identity.fingerprint(), identity.chain.size());
        }
    } catch (const FormatError& error) {
        reading.error = error.what();
    }
    return reading;
}

TEST(KeyFile, readsEveryFormThatKeysAreExportedIn) {
    const auto& installer = hierarchy().installer();
    const struct {
        const char* form;
        std::string bytes, passphrase;
        int questions;
    } cases[] = {
        {"PEM", hierarchy().pem(installer), "", 0},
        {"encrypted PEM", hierarchy().pem(installer, "secret"), "secret", 1},
        {"PKCS#12", hierarchy().pkcs12(installer, "gehe\u00edm"), "gehe\u00edm", 1},
        {"PKCS#12 with an empty passphrase", hierarchy().pkcs12(installer, ""), "not asked for", 0},
    };
    const std::vector<std::pair<std::string, std::size_t>> expected = {{installer.sha1, 1}};
    for (const auto& example : cases) {
        const Reading reading = read(example.bytes, example.passphrase);
        EXPECT_EQ(reading.error, "") << example.form;
        EXPECT_EQ(reading.identities, expected) << example.form;
        EXPECT_EQ(reading.questions, example.questions) << example.form;
    }
}

TEST(KeyFile, keepsAllIdentitiesOfAFile) {
    const auto& installer = hierarchy().installer();
    const auto& application = hierarchy().application();
    const std::vector<std::pair<std::string, std::size_t>> expected = {{installer.sha1, 1}, {application.sha1, 1}};
    const std::string pem = hierarchy().pem(installer) + application.certificate + application.key;
    EXPECT_EQ(read(pem, "").identities, expected);
}

TEST(KeyFile, saysWhatIsWrong) {
    const auto& installer = hierarchy().installer();
    const std::string pkcs12 = hierarchy().pkcs12(installer, "secret");
    const struct {
        std::string bytes, error;
    } cases[] = {
        {pkcs12, "FILE: the passphrase is wrong"},
        {hierarchy().pem(installer, "secret"), "FILE: the passphrase is wrong, or the private key is damaged"},
        {installer.key + hierarchy().intermediate().certificate, "FILE: no certificate belongs to the private key"},
        {pkcs12.substr(0, pkcs12.size() / 2), "FILE: not a certificate"},
        {"", "FILE: not a certificate"},
    };
    for (const auto& example : cases) {
        EXPECT_TRUE(read(example.bytes, "wrong").error.starts_with(example.error))
            << read(example.bytes, "wrong").error << "\nexpected " << example.error;
    }
}

} // namespace
} // namespace corvane
