#include "Platform/Trust/Certificate.hpp"

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Trust/OpenSSLOwners.hpp"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <array>
#include <climits>
#include <ctime>

namespace corvane {
namespace {

/// Keeps OpenSSL from asking the terminal for the password of an encrypted PEM block.
int noPassword(char*, int, int, void*) { return -1; }

[[noreturn]] void fail(const std::string& name) {
    throw FormatError(name + ": not a certificate (" + OpenSSL::takeError() + ")");
}

OpenSSL::Bio reader(std::string_view bytes, const std::string& name) {
    if (bytes.size() > INT_MAX) throw FormatError(name + ": too large for a certificate");
    return OpenSSL::Bio(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

OpenSSL::Certificate parseDER(std::string_view der, const std::string& name) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(der.data());
    const unsigned char* const end = bytes + der.size();
    OpenSSL::Certificate certificate(d2i_X509(nullptr, &bytes, static_cast<long>(der.size())));
    if (!certificate) fail(name);
    if (bytes != end) throw FormatError(name + ": bytes behind the end of the certificate");
    return certificate;
}

std::string derOf(X509* certificate) {
    unsigned char* bytes = nullptr;
    const int length = i2d_X509(certificate, &bytes);
    const OpenSSL::Bytes owner(bytes);
    return length > 0 ? std::string(reinterpret_cast<char*>(bytes), static_cast<std::size_t>(length)) : std::string();
}

std::string utf8(const ASN1_STRING* string) {
    unsigned char* bytes = nullptr;
    const int length = ASN1_STRING_to_UTF8(&bytes, string);
    const OpenSSL::Bytes owner(bytes);
    return length > 0 ? std::string(reinterpret_cast<char*>(bytes), static_cast<std::size_t>(length)) : std::string();
}

std::string entry(const X509_NAME* name, int index) {
    return index < 0 ? std::string() : utf8(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, index)));
}

std::string lastCommonName(const X509_NAME* name) {
    int last = -1;
    for (int index = -1; (index = X509_NAME_get_index_by_NID(name, NID_commonName, index)) >= 0;) last = index;
    return entry(name, last);
}

Time toTime(const ASN1_TIME* time) {
    std::tm parts{};
    if (ASN1_TIME_to_tm(time, &parts) != 1) throw FormatError("certificate: unreadable time of validity");
    return Time(std::chrono::seconds(::timegm(&parts)));
}

std::string digest(X509* certificate, const EVP_MD* algorithm) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
    unsigned int length = 0;
    X509_digest(certificate, algorithm, bytes.data(), &length);
    return {reinterpret_cast<char*>(bytes.data()), length};
}

X509_EXTENSION* extension(X509* certificate, const std::string& oid) {
    const OpenSSL::Object object(OBJ_txt2obj(oid.c_str(), 1));
    const int index = object ? X509_get_ext_by_OBJ(certificate, object.get(), -1) : -1;
    return index < 0 ? nullptr : X509_get_ext(certificate, index);
}

} // namespace

std::string timeText(Time time) {
    const std::time_t seconds = time.time_since_epoch().count();
    std::tm parts{};
    std::array<char, 64> buffer{};
    ::gmtime_r(&seconds, &parts);
    std::strftime(buffer.data(), buffer.size(), "%Y-%m-%d %H:%M:%S +0000", &parts);
    return buffer.data();
}

struct Certificate::Content {
    OpenSSL::Certificate certificate;
    std::string der;
    Time notBefore;
    Time notAfter;

    explicit Content(OpenSSL::Certificate parsed)
        : certificate(std::move(parsed)),
          der(derOf(certificate.get())),
          notBefore(toTime(X509_get0_notBefore(certificate.get()))),
          notAfter(toTime(X509_get0_notAfter(certificate.get()))) {}
};

Certificate Certificate::parse(std::string_view derOrPEM, const std::string& name) {
    if (derOrPEM.find("-----BEGIN") != std::string_view::npos) return parseAll(derOrPEM, name).front();
    return Certificate(std::make_shared<const Content>(parseDER(derOrPEM, name)));
}

std::vector<Certificate> Certificate::parseAll(std::string_view pem, const std::string& name) {
    std::vector<Certificate> found;
    const OpenSSL::Bio source = reader(pem, name);
    while (OpenSSL::Certificate next{PEM_read_bio_X509(source.get(), nullptr, noPassword, nullptr)}) {
        found.push_back(Certificate(std::make_shared<const Content>(std::move(next))));
    }
    // The end of the text shows as a missing start line; anything else is damage.
    if (found.empty() || ERR_GET_REASON(ERR_peek_last_error()) != PEM_R_NO_START_LINE) fail(name);
    ERR_clear_error();
    return found;
}

const std::string& Certificate::der() const { return content_->der; }
x509_st* Certificate::x509() const { return content_->certificate.get(); }
Time Certificate::notBefore() const { return content_->notBefore; }
Time Certificate::notAfter() const { return content_->notAfter; }
std::string Certificate::sha1() const { return digest(x509(), EVP_sha1()); }
std::string Certificate::sha256() const { return digest(x509(), EVP_sha256()); }

std::string Certificate::commonName() const { return lastCommonName(X509_get_subject_name(x509())); }
std::string Certificate::issuerCommonName() const { return lastCommonName(X509_get_issuer_name(x509())); }

std::optional<std::string> Certificate::subjectField(const std::string& oid) const {
    const X509_NAME* subject = X509_get_subject_name(x509());
    const OpenSSL::Object object(OBJ_txt2obj(oid.c_str(), 1));
    const int index = object ? X509_NAME_get_index_by_OBJ(subject, object.get(), -1) : -1;
    ERR_clear_error();
    return index < 0 ? std::nullopt : std::optional(entry(subject, index));
}

bool Certificate::isIssuedBy(const Certificate& issuer) const {
    const bool isNamed = X509_check_issued(issuer.x509(), x509()) == X509_V_OK;
    const bool isSigned = isNamed && X509_verify(x509(), X509_get0_pubkey(issuer.x509())) == 1;
    ERR_clear_error();
    return isSigned;
}

bool Certificate::hasExtension(const std::string& oid) const { return extension(x509(), oid) != nullptr; }

bool Certificate::isCritical(const std::string& oid) const {
    const X509_EXTENSION* found = extension(x509(), oid);
    return found != nullptr && X509_EXTENSION_get_critical(found) == 1;
}

std::optional<std::string> Certificate::extensionText(const std::string& oid) const {
    X509_EXTENSION* found = extension(x509(), oid);
    if (found == nullptr) return std::nullopt;
    const ASN1_OCTET_STRING* value = X509_EXTENSION_get_data(found);
    const unsigned char* bytes = ASN1_STRING_get0_data(value);
    const OpenSSL::Owner<ASN1_TYPE, ASN1_TYPE_free> decoded(d2i_ASN1_TYPE(nullptr, &bytes, ASN1_STRING_length(value)));
    ERR_clear_error();
    switch (decoded ? ASN1_TYPE_get(decoded.get()) : V_ASN1_UNDEF) {
    case V_ASN1_UTF8STRING:
    case V_ASN1_PRINTABLESTRING:
    case V_ASN1_IA5STRING:
        return utf8(decoded->value.asn1_string);
    default:
        return std::nullopt;
    }
}

bool Certificate::isCertificateAuthority() const { return X509_check_ca(x509()) == 1; }

bool Certificate::allowsSigningData() const {
    return (X509_get_key_usage(x509()) & (KU_DIGITAL_SIGNATURE | KU_NON_REPUDIATION)) != 0;
}

bool Certificate::hasExtendedKeyUsages() const { return hasExtension("2.5.29.37"); }

bool Certificate::hasExtendedKeyUsage(const std::string& oid) const {
    const OpenSSL::Owner<EXTENDED_KEY_USAGE, EXTENDED_KEY_USAGE_free> usages(
        static_cast<EXTENDED_KEY_USAGE*>(X509_get_ext_d2i(x509(), NID_ext_key_usage, nullptr, nullptr)));
    for (int index = 0; usages && index < sk_ASN1_OBJECT_num(usages.get()); ++index) {
        if (OpenSSL::text(sk_ASN1_OBJECT_value(usages.get(), index)) == oid) return true;
    }
    ERR_clear_error();
    return false;
}

bool Certificate::hasPolicy(const std::string& oid) const {
    const OpenSSL::Owner<CERTIFICATEPOLICIES, CERTIFICATEPOLICIES_free> policies(
        static_cast<CERTIFICATEPOLICIES*>(X509_get_ext_d2i(x509(), NID_certificate_policies, nullptr, nullptr)));
    ERR_clear_error();
    for (int index = 0; policies && index < sk_POLICYINFO_num(policies.get()); ++index) {
        if (OpenSSL::text(sk_POLICYINFO_value(policies.get(), index)->policyid) == oid) return true;
    }
    return false;
}

std::string upperHexadecimal(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const char byte : bytes) {
        text += digits[static_cast<unsigned char>(byte) >> 4U];
        text += digits[static_cast<unsigned char>(byte) & 15U];
    }
    return text;
}

} // namespace corvane
