#include "Platform/Trust/PKCS12.hpp"

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Trust/MemoryBio.hpp"

#include <openssl/pkcs12.h>
#include <openssl/provider.h>

namespace corvane::PKCS12 {
namespace {

using Archive = OpenSSL::Owner<::PKCS12, PKCS12_free>;
using Provider = OpenSSL::Owner<OSSL_PROVIDER, OSSL_PROVIDER_unload>;
using Safes = OpenSSL::Owner<STACK_OF(PKCS7), +[](STACK_OF(PKCS7) * safes) { sk_PKCS7_pop_free(safes, PKCS7_free); }>;
using Bags = OpenSSL::Owner<STACK_OF(PKCS12_SAFEBAG), +[](STACK_OF(PKCS12_SAFEBAG) * bags) {
    sk_PKCS12_SAFEBAG_pop_free(bags, PKCS12_SAFEBAG_free);
}>;
using KeyInfo = OpenSSL::Owner<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free>;

/// Bags within bags, as deep as anybody writes them.
constexpr int maximumDepth = 4;

/// Takes the keys and certificates out of one file.
class Reader {
  public:
    Reader(const std::string& name, std::optional<std::string> passphrase, bool hasLegacyCiphers)
        : name_(name), passphrase_(std::move(passphrase)), hasLegacyCiphers_(hasLegacyCiphers) {}

    KeyFile read(const ::PKCS12* archive) {
        const Safes safes(PKCS12_unpack_authsafes(archive));
        if (!safes) fail();
        for (int index = 0; index < sk_PKCS7_num(safes.get()); ++index) {
            readBags(unpack(sk_PKCS7_value(safes.get(), index)).get(), 0);
        }
        return std::move(file_);
    }

  private:
    Bags unpack(PKCS7* safe) {
        const bool encrypted = PKCS7_type_is_encrypted(safe);
        if (!encrypted && !PKCS7_type_is_data(safe)) throw FormatError(name_ + ": an unknown kind of PKCS#12 content");
        Bags bags(encrypted ? PKCS12_unpack_p7encdata(safe, password(), passwordLength()) : PKCS12_unpack_p7data(safe));
        if (!bags) fail();
        return bags;
    }

    void readBags(const STACK_OF(PKCS12_SAFEBAG) * bags, int depth) {
        if (depth > maximumDepth) throw FormatError(name_ + ": PKCS#12 bags are nested too deeply");
        for (int index = 0; index < sk_PKCS12_SAFEBAG_num(bags); ++index) {
            readBag(sk_PKCS12_SAFEBAG_value(bags, index), depth);
        }
    }

    void readBag(PKCS12_SAFEBAG* bag, int depth) {
        switch (PKCS12_SAFEBAG_get_nid(bag)) {
        case NID_keyBag:
            addKey(PKCS12_SAFEBAG_get0_p8inf(bag));
            break;
        case NID_pkcs8ShroudedKeyBag:
            addKey(KeyInfo(PKCS12_decrypt_skey(bag, password(), passwordLength())).get());
            break;
        case NID_certBag:
            addCertificate(bag);
            break;
        case NID_safeContentsBag:
            readBags(PKCS12_SAFEBAG_get0_safes(bag), depth + 1);
            break;
        default: // revocation lists and secrets are of no use here
            break;
        }
    }

    void addKey(const PKCS8_PRIV_KEY_INFO* info) {
        EVP_PKEY* key = info == nullptr ? nullptr : EVP_PKCS82PKEY(info);
        if (key == nullptr) fail();
        file_.keys.emplace_back(key);
    }

    void addCertificate(const PKCS12_SAFEBAG* bag) {
        if (PKCS12_SAFEBAG_get_bag_nid(bag) != NID_x509Certificate) return;
        const OpenSSL::Certificate certificate(PKCS12_SAFEBAG_get1_cert(bag));
        if (!certificate) fail();
        const std::string der = OpenSSL::written([&](BIO* memory) { return i2d_X509_bio(memory, certificate.get()); });
        file_.certificates.push_back(Certificate::parse(der, name_));
    }

    [[noreturn]] void fail() const {
        std::string text = name_ + ": cannot be decrypted or is damaged (" + OpenSSL::takeError() + ")";
        if (!hasLegacyCiphers_) {
            text += "; old exports use a cipher (RC2) of OpenSSL's legacy provider, which is not installed here";
        }
        throw FormatError(text);
    }

    const char* password() const { return passphrase_ ? passphrase_->c_str() : nullptr; }
    int passwordLength() const { return passphrase_ ? static_cast<int>(passphrase_->size()) : 0; }

    const std::string& name_;
    std::optional<std::string> passphrase_;
    bool hasLegacyCiphers_;
    KeyFile file_;
};

bool opens(::PKCS12* archive, const char* passphrase, int length) {
    const bool good = PKCS12_verify_mac(archive, passphrase, length) == 1;
    if (!good) OpenSSL::takeError();
    return good;
}

/// The passphrase that fits. Programs differ in whether an empty one is an empty text or none at all.
std::optional<std::string> findPassphrase(::PKCS12* archive, const std::string& name, const PassphraseSource& source) {
    const bool isProtected = PKCS12_mac_present(archive) == 1;
    if (isProtected && opens(archive, nullptr, 0)) return std::nullopt;
    if (isProtected && opens(archive, "", 0)) return "";
    std::string passphrase = source();
    if (isProtected && !opens(archive, passphrase.c_str(), static_cast<int>(passphrase.size()))) {
        throw FormatError(name + ": the passphrase is wrong");
    }
    return passphrase;
}

} // namespace

std::optional<KeyFile> parse(const std::string& bytes, const std::string& name, const PassphraseSource& passphrase) {
    const Archive archive(d2i_PKCS12_bio(OpenSSL::reading(bytes).get(), nullptr));
    OpenSSL::takeError();
    if (!archive) return std::nullopt;
    // The ciphers that OpenSSL has by itself stay at hand beside those of this provider.
    const Provider legacy(OSSL_PROVIDER_try_load(nullptr, "legacy", 1));
    OpenSSL::takeError();
    Reader reader(name, findPassphrase(archive.get(), name, passphrase), legacy != nullptr);
    return reader.read(archive.get());
}

} // namespace corvane::PKCS12
