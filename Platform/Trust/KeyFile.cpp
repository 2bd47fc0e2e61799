#include "Platform/Trust/KeyFile.hpp"

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Trust/MemoryBio.hpp"
#include "Platform/Trust/PKCS12.hpp"

#include <openssl/pem.h>

#include <algorithm>
#include <cstring>
#include <optional>

namespace corvane {
namespace {

/// Asks once and remembers: OpenSSL may want the passphrase of one key several times.
struct PassphraseMemory {
    const PassphraseSource& source;
    std::optional<std::string> known;
};

int answer(char* buffer, int size, int, void* context) {
    auto& memory = *static_cast<PassphraseMemory*>(context);
    if (!memory.known) memory.known = memory.source();
    if (memory.known->size() > static_cast<std::size_t>(size)) return -1;
    std::memcpy(buffer, memory.known->data(), memory.known->size());
    return static_cast<int>(memory.known->size());
}

PrivateKey parseKey(std::string_view block, const std::string& name, PassphraseMemory& passphrase) {
    EVP_PKEY* key = PEM_read_bio_PrivateKey(OpenSSL::reading(block).get(), nullptr, answer, &passphrase);
    const std::string reason = OpenSSL::takeError();
    if (key != nullptr) return PrivateKey(key);
    if (passphrase.known) throw FormatError(name + ": the passphrase is wrong, or the private key is damaged");
    throw FormatError(name + ": the private key is damaged (" + reason + ")");
}

/// The PEM blocks of a text whose label ends in PRIVATE KEY, with their first and last lines.
std::vector<std::string_view> keyBlocks(std::string_view pem) {
    constexpr std::string_view begin = "-----BEGIN ", end = "-----END ", dashes = "-----", suffix = "PRIVATE KEY";
    std::vector<std::string_view> blocks;
    for (std::size_t start = pem.find(begin); start != std::string_view::npos; start = pem.find(begin, start + 1)) {
        const std::size_t label = start + begin.size();
        const std::size_t labelEnd = pem.find(dashes, label);
        const std::size_t last = std::min(pem.find(end, label), pem.size());
        if (labelEnd == std::string_view::npos || !pem.substr(label, labelEnd - label).ends_with(suffix)) continue;
        const std::size_t stop = std::min(pem.find('\n', last), pem.size());
        blocks.push_back(pem.substr(start, stop - start));
    }
    return blocks;
}

KeyFile parsePEM(const std::string& pem, const std::string& name, const PassphraseSource& passphrase) {
    KeyFile file;
    PassphraseMemory memory{passphrase, std::nullopt};
    for (const std::string_view block : keyBlocks(pem)) file.keys.push_back(parseKey(block, name, memory));
    file.certificates = Certificate::parseAll(pem, name);
    return file;
}

} // namespace

KeyFile KeyFile::parse(const std::string& bytes, const std::string& name, const PassphraseSource& passphrase) {
    if (bytes.find("-----BEGIN ") != std::string::npos) return parsePEM(bytes, name, passphrase);
    if (std::optional<KeyFile> file = PKCS12::parse(bytes, name, passphrase)) return *file;
    return {.keys = {}, .certificates = {Certificate::parse(bytes, name)}};
}

std::vector<Identity> KeyFile::identities(const std::string& name) const {
    std::vector<Certificate> chain;
    for (const Certificate& certificate : certificates) {
        const auto belongs = [&](const PrivateKey& key) { return key.belongsTo(certificate); };
        if (std::none_of(keys.begin(), keys.end(), belongs)) chain.push_back(certificate);
    }
    std::vector<Identity> found;
    for (const PrivateKey& key : keys) {
        const std::size_t before = found.size();
        for (const Certificate& certificate : certificates) {
            if (key.belongsTo(certificate)) found.push_back({key, certificate, chain});
        }
        if (found.size() == before) throw FormatError(name + ": no certificate belongs to the private key");
    }
    return found;
}

} // namespace corvane
