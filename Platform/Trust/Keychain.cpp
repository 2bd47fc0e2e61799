#include "Platform/Trust/Keychain.hpp"

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Trust/KeyFile.hpp"
#include "Platform/Trust/MemoryBio.hpp"
#include "Platform/Trust/PrivateFiles.hpp"
#include "Platform/Trust/TimestampAuthority.hpp"
#include "Support/FileManager.hpp"
#include "Support/Text.hpp"

#include <openssl/pem.h>
#include <sys/stat.h>

#include <algorithm>
#include <tuple>

namespace corvane {
namespace {

using PrivateFiles::readableByOthers;
using PrivateFiles::requireClosed;
using PrivateFiles::writableByOthers;

constexpr std::uint64_t fileLimit = std::uint64_t{1} << 20;

/// The PEM files of a folder of the keychain; none when the folder is missing.
std::vector<FileURL> files(const FileURL& keychain, std::string_view name, mode_t forbidden) {
    const FileURL folder = keychain / name;
    if (!FileManager::isDirectory(folder)) return {};
    requireClosed(keychain, forbidden);
    return PrivateFiles::list(folder, "pem", forbidden);
}

std::vector<Certificate> certificates(const FileURL& keychain, std::string_view name) {
    std::vector<Certificate> found;
    for (const FileURL& url : files(keychain, name, writableByOthers)) {
        found.push_back(Certificate::parse(FileManager::readFile(url, fileLimit), url.string()));
    }
    return found;
}

Identity readIdentity(const FileURL& url) {
    const auto noPassphrase = [&]() -> std::string { throw FormatError(url.string() + ": the key is encrypted"); };
    const KeyFile file = KeyFile::parse(FileManager::readFile(url, fileLimit), url.string(), noPassphrase);
    const std::vector<Identity> identities = file.identities(url.string());
    if (identities.size() != 1) throw FormatError(url.string() + ": expected one private key");
    return identities[0];
}

std::string pem(const Certificate& certificate) {
    return OpenSSL::written([&](BIO* memory) { return PEM_write_bio_X509(memory, certificate.x509()); });
}

} // namespace

Keychain Keychain::ofUser() {
    return Keychain(PrivateFiles::baseFolder("XDG_DATA_HOME", "~/.local/share") / "corvane" / "keychain");
}

std::vector<Identity> Keychain::identities() const {
    std::vector<Identity> found;
    for (const FileURL& url : files(folder_, "identities", readableByOthers)) found.push_back(readIdentity(url));
    std::sort(found.begin(), found.end(), [](const Identity& left, const Identity& right) {
        return std::tuple(left.name(), left.fingerprint()) < std::tuple(right.name(), right.fingerprint());
    });
    return found;
}

std::vector<Certificate> Keychain::intermediates() const { return certificates(folder_, "certificates"); }

std::vector<Certificate> Keychain::trustedRoots() const { return certificates(folder_, "roots"); }

std::string Keychain::timestampAuthority() const {
    const FileURL url = folder_ / "timestamp-authority";
    if (!FileManager::fileExists(url)) return TimestampAuthority::defaultAddress;
    requireClosed(folder_, writableByOthers);
    requireClosed(url, writableByOthers);
    return Text::firstLine(FileManager::readFile(url, fileLimit));
}

TrustSettings Keychain::trustSettings(Time now) const { return {.extraRoots = trustedRoots(), .now = now}; }

CertificateChain Keychain::chain(const Identity& identity, Time now) const {
    std::vector<Certificate> issuers = identity.chain;
    for (const Certificate& certificate : intermediates()) issuers.push_back(certificate);
    return evaluateChain(identity.certificate, issuers, trustSettings(now), now, ChainPurpose::packageSigning);
}

void Keychain::add(const Identity& identity) const {
    std::string content = identity.key.pem() + pem(identity.certificate);
    for (const Certificate& certificate : identity.chain) content += pem(certificate);
    write(FileURL("identities") / (identity.fingerprint() + ".pem"), content);
}

void Keychain::addIntermediate(const Certificate& certificate) const {
    write(FileURL("certificates") / (upperHexadecimal(certificate.sha256()) + ".pem"), pem(certificate));
}

void Keychain::addTrustedRoot(const Certificate& root) const {
    if (!root.isCertificateAuthority() || X509_check_issued(root.x509(), root.x509()) != X509_V_OK) {
        throw FormatError("\"" + root.commonName() + "\" is not the root of a certificate authority");
    }
    write(FileURL("roots") / (upperHexadecimal(root.sha256()) + ".pem"), pem(root));
}

void Keychain::setTimestampAuthority(const std::string& address) const {
    HTTPClient::requireAddress(address);
    write("timestamp-authority", address + "\n");
}

bool Keychain::removeIdentity(const std::string& fingerprint) const {
    if (!FileManager::isDirectory(folder_)) return false;
    const UniqueDescriptor held = PrivateFiles::lock(folder_);
    for (const Identity& identity : identities()) {
        if (Text::lowercased(identity.fingerprint()) != Text::lowercased(fingerprint)) continue;
        FileManager::removeItem(folder_ / "identities" / (identity.fingerprint() + ".pem"));
        return true;
    }
    return false;
}

void Keychain::write(const FileURL& relativePath, const std::string& content) const {
    FileManager::createPrivateDirectory(deletingLastPathComponent(folder_));
    FileManager::createPrivateDirectory(folder_);
    requireClosed(folder_, readableByOthers);
    const UniqueDescriptor held = PrivateFiles::lock(folder_);
    const FileURL url = folder_ / relativePath;
    PrivateFiles::write(url, content);
}

} // namespace corvane
