#include "Tests/Platform/Trust/TestAuthority.hpp"

#include "Platform/Trust/MemoryBio.hpp"
#include "Platform/Trust/OpenSSLOwners.hpp"

#include <openssl/cms.h>
#include <openssl/rand.h>

namespace corvane::TestSupport {
namespace {

using OpenSSL::Owner;
using Message = Owner<CMS_ContentInfo, CMS_ContentInfo_free>;
using BorrowedStack = Owner<STACK_OF(X509), +[](STACK_OF(X509) * stack) { sk_X509_free(stack); }>;

template <class Result>
Result require(Result result) {
    return OpenSSL::require(result, "test authority");
}

const unsigned char* bytes(const std::string& text) { return reinterpret_cast<const unsigned char*>(text.data()); }

void setTime(ASN1_TIME* field, Time time) { require(ASN1_TIME_set(field, time.time_since_epoch().count())); }

void addExtension(X509* certificate, X509* issuer, const std::string& name, const std::string& value) {
    X509V3_CTX context{};
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const Owner<X509_EXTENSION, X509_EXTENSION_free> extension(
        require(X509V3_EXT_conf(nullptr, &context, name.c_str(), value.c_str())));
    require(X509_add_ext(certificate, extension.get(), -1));
}

void setName(X509_NAME* name, const std::string& commonName) {
    for (const auto& [field, value] : {std::pair<const char*, std::string>{"CN", commonName}, {"OU", "TEAM123456"}}) {
        require(X509_NAME_add_entry_by_txt(name, field, MBSTRING_UTF8, bytes(value), -1, -1, 0));
    }
}

template <class Object, class Encode>
std::string encoded(Object* object, Encode encode) {
    unsigned char* der = nullptr;
    const int length = encode(object, &der);
    require(length > 0);
    const OpenSSL::Bytes owner(der);
    return {reinterpret_cast<char*>(der), static_cast<std::size_t>(length)};
}

/// The content of a token.
std::string tokenInfo(const std::string& stampedBytes, Time time) {
    const Owner<TS_TST_INFO, TS_TST_INFO_free> info(require(TS_TST_INFO_new()));
    const Owner<TS_MSG_IMPRINT, TS_MSG_IMPRINT_free> imprint(require(TS_MSG_IMPRINT_new()));
    const Owner<X509_ALGOR, X509_ALGOR_free> algorithm(require(X509_ALGOR_new()));
    const Owner<ASN1_INTEGER, ASN1_INTEGER_free> serial(require(ASN1_INTEGER_new()));
    const Owner<ASN1_GENERALIZEDTIME, ASN1_GENERALIZEDTIME_free> stamp(
        require(ASN1_GENERALIZEDTIME_set(nullptr, time.time_since_epoch().count())));
    const OpenSSL::Object policy(require(OBJ_txt2obj("1.2.3.4", 1)));
    std::string digest = OpenSSL::digest(EVP_sha256(), stampedBytes);
    X509_ALGOR_set_md(algorithm.get(), EVP_sha256());
    require(TS_MSG_IMPRINT_set_algo(imprint.get(), algorithm.get()));
    require(TS_MSG_IMPRINT_set_msg(imprint.get(), reinterpret_cast<unsigned char*>(digest.data()), 32));
    require(ASN1_INTEGER_set(serial.get(), 7));
    require(TS_TST_INFO_set_version(info.get(), 1) && TS_TST_INFO_set_policy_id(info.get(), policy.get()) &&
            TS_TST_INFO_set_msg_imprint(info.get(), imprint.get()) &&
            TS_TST_INFO_set_serial(info.get(), serial.get()) && TS_TST_INFO_set_time(info.get(), stamp.get()));
    return encoded(info.get(), i2d_TS_TST_INFO);
}

void stamp(CMS_ContentInfo* message, const MessageShape& shape) {
    CMS_SignerInfo* signer = sk_CMS_SignerInfo_value(CMS_get0_SignerInfos(message), 0);
    const ASN1_OCTET_STRING* value = CMS_SignerInfo_get0_signature(signer);
    const std::string signature(reinterpret_cast<const char*>(ASN1_STRING_get0_data(value)),
                                static_cast<std::size_t>(ASN1_STRING_length(value)));
    const std::string stamped = shape.stampsOtherBytes ? "other bytes" : signature;
    const std::string token = timestampToken(*shape.stamper, {}, stamped, shape.stampedAt);
    require(CMS_unsigned_add1_attr_by_NID(signer, NID_id_smime_aa_timeStampToken, V_ASN1_SEQUENCE, token.data(),
                                          static_cast<int>(token.size())));
}

void addAttributes(CMS_SignerInfo* signer, const MessageShape& shape) {
    for (const auto& [oid, values] : shape.attributes) {
        require(CMS_signed_add1_attr_by_txt(signer, oid.c_str(), 0, nullptr, 0));
        // A sequence is written as it is given, so several in its place stay in their order. In the call above OpenSSL
        // would have read them again, and sorted them.
        X509_ATTRIBUTE* added = CMS_signed_get_attr(signer, CMS_signed_get_attr_count(signer) - 1);
        require(X509_ATTRIBUTE_set1_data(added, V_ASN1_SEQUENCE, values.data(), static_cast<int>(values.size())));
    }
    if (!shape.signingTime) return;
    const Owner<ASN1_TIME, ASN1_TIME_free> time(
        require(ASN1_TIME_set(nullptr, shape.signingTime->time_since_epoch().count())));
    require(CMS_signed_add1_attr_by_NID(signer, NID_pkcs9_signingTime, ASN1_STRING_type(time.get()), time.get(), -1));
}

unsigned attributeFlags(const MessageShape& shape) {
    if (!shape.signedAttributes) return CMS_NOATTR;
    return shape.isToken && shape.namesSigner ? CMS_CADES : 0U;
}

std::string certificateSequence(const std::vector<Certificate>& certificates) {
    std::string content;
    for (const Certificate& certificate : certificates) content += certificate.der();
    return std::string("\x30\x82", 2) + static_cast<char>(content.size() >> 8) + static_cast<char>(content.size()) +
           content;
}

} // namespace

std::string littleEndian(std::uint64_t value, int size) {
    std::string text;
    for (int index = 0; index < size; ++index) text += static_cast<char>(value >> (8 * index));
    return text;
}

Extensions authorityExtensions(const std::string& marker) {
    Extensions extensions{{"basicConstraints", "critical,CA:TRUE"}, {"keyUsage", "critical,keyCertSign,cRLSign"}};
    if (!marker.empty()) extensions.emplace_back(marker, "DER:05:00");
    return extensions;
}

Extensions leafExtensions(const std::string& extendedUse, const std::string& marker) {
    Extensions extensions{{"keyUsage", "critical,digitalSignature"}, {"extendedKeyUsage", "critical," + extendedUse}};
    if (!marker.empty()) extensions.emplace_back(marker, "critical,DER:05:00");
    return extensions;
}

Issued issue(const Wanted& wanted, const Issued* issuer) {
    std::shared_ptr<evp_pkey_st> key = wanted.ownKey;
    if (!key) key.reset(require(wanted.isRSA ? EVP_RSA_gen(2048) : EVP_EC_gen("P-256")), EVP_PKEY_free);
    const OpenSSL::Certificate made(require(X509_new()));
    X509* const signer = issuer == nullptr ? made.get() : issuer->certificate.x509();
    X509_set_version(made.get(), X509_VERSION_3);
    std::int64_t serial = wanted.serial;
    if (serial == 0) require(RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial));
    require(ASN1_INTEGER_set_int64(X509_get_serialNumber(made.get()), serial & INT64_MAX));
    setName(X509_get_subject_name(made.get()), wanted.commonName);
    require(X509_set_issuer_name(made.get(), X509_get_subject_name(signer)));
    setTime(X509_getm_notBefore(made.get()), day(wanted.firstDay));
    setTime(X509_getm_notAfter(made.get()), day(wanted.lastDay));
    require(X509_set_pubkey(made.get(), key.get()));
    for (const auto& [name, value] : wanted.extensions) addExtension(made.get(), signer, name, value);
    const std::shared_ptr<evp_pkey_st> issuerKey = issuer == nullptr ? key : issuer->key;
    require(X509_sign(made.get(), wanted.otherKey ? wanted.otherKey.get() : issuerKey.get(), EVP_sha256()));
    return {Certificate::parse(encoded(made.get(), i2d_X509), wanted.commonName), key};
}

const World& World::shared() {
    const auto make = [] {
        const auto installer = leafExtensions("1.2.840.113635.100.4.13", "1.2.840.113635.100.6.1.14");
        const auto stamper = leafExtensions("timeStamping");
        const auto application = leafExtensions("codeSigning", "1.2.840.113635.100.6.1.13");
        Extensions recent = installer;
        recent.emplace_back("1.2.840.113635.100.6.1.33", "ASN1:UTF8String:20210422000000Z");
        const auto leaf = [](const char* name, const Extensions& extensions, const Issued& issuer, int firstDay,
                             int lastDay, bool isRSA = false) {
            return issue({name, extensions, firstDay, lastDay, isRSA}, &issuer);
        };
        const Issued root = issue({"Trusted Root", authorityExtensions(), -5000, 5000, true});
        const Issued authority =
            issue({"Developer Authority", authorityExtensions("1.2.840.113635.100.6.2.6"), -5000, 5000}, &root);
        const Issued ticketRoot = issue({"Apple Root CA - G3", authorityExtensions(), -5000, 5000});
        const Issued ticketAuthority =
            issue({"Ticket Authority", authorityExtensions("1.2.840.113635.100.6.2.17"), -5000, 5000}, &ticketRoot);
        const Issued adminRoot = issue({"Administrator's Root", authorityExtensions(), -5000, 5000});
        return World{.root = root,
                     .developerAuthority = authority,
                     .installer = leaf("Installer", recent, authority, -1000, 1000),
                     .expiredInstaller = leaf("Expired Installer", recent, authority, -1000, -100),
                     .legacyInstaller = leaf("Legacy Installer", installer, authority, -4000, 1000),
                     .rsaInstaller = leaf("RSA Installer", recent, authority, -1000, 1000, true),
                     .stamper = leaf("Stamper", stamper, root, -5000, 1000),
                     .application = leaf("Application", application, authority, -1000, 1000),
                     .expiredApplication = leaf("Expired Application", application, authority, -1000, -100),
                     .ticketRoot = ticketRoot,
                     .ticketAuthority = ticketAuthority,
                     .ticketSigner = leaf("Ticket Signer", leafExtensions("codeSigning", "1.2.840.113635.100.6.1.30"),
                                          ticketAuthority, -300, -1),
                     .adminRoot = adminRoot,
                     .adminInstaller = leaf("Administrator's Installer", installer, adminRoot, -1000, 1000),
                     .adminApplication = leaf("Administrator's Application", application, adminRoot, -1000, 1000),
                     .adminStamper = leaf("Administrator's Stamper", stamper, adminRoot, -1000, 1000)};
    };
    static const World world = make();
    return world;
}

TrustSettings World::trust() const {
    return {.extraRoots = {adminRoot.certificate},
            .now = present,
            .appleRoots = {TrustAnchor::of(root.certificate), TrustAnchor::of(ticketRoot.certificate)}};
}

std::string signedMessage(const Issued& signer, const std::vector<Certificate>& carried, const std::string& content,
                          const MessageShape& shape) {
    const BorrowedStack stack(require(sk_X509_new_null()));
    for (const Certificate& certificate : carried) sk_X509_push(stack.get(), certificate.x509());
    const unsigned mode = CMS_PARTIAL | CMS_BINARY | (shape.detached ? CMS_DETACHED : 0U);
    const Message message(require(CMS_sign(nullptr, nullptr, stack.get(), nullptr, mode)));
    if (shape.isToken) require(CMS_set1_eContentType(message.get(), OBJ_nid2obj(NID_id_smime_ct_TSTInfo)));
    addAttributes(
        require(CMS_add1_signer(message.get(), signer.certificate.x509(), signer.key.get(),
                                EVP_get_digestbyname(shape.digest), mode | CMS_NOSMIMECAP | attributeFlags(shape))),
        shape);
    require(CMS_final(message.get(), OpenSSL::reading(content).get(), nullptr, mode));
    if (shape.stamper != nullptr) stamp(message.get(), shape);
    return encoded(message.get(), i2d_CMS_ContentInfo);
}

std::string timestampToken(const Issued& signer, const std::vector<Certificate>& carried,
                           const std::string& stampedBytes, Time time, bool namesSigner) {
    return signedMessage(signer, carried, tokenInfo(stampedBytes, time),
                         {.detached = false, .isToken = true, .namesSigner = namesSigner});
}

std::string plainSignature(const Issued& signer, const char* digest, const std::string& message) {
    const OpenSSL::DigestContext context(require(EVP_MD_CTX_new()));
    require(EVP_DigestSignInit(context.get(), nullptr, EVP_get_digestbyname(digest), nullptr, signer.key.get()));
    std::string signature(512, '\0');
    std::size_t size = signature.size();
    require(EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &size, bytes(message),
                           message.size()));
    signature.resize(size);
    return signature;
}

std::string ticket(const Issued& signer, const std::vector<Certificate>& carried, Time time, int hashType,
                   const std::string& hash) {
    return ticket(signer, carried, time, hashType, std::vector{hash});
}

std::string ticket(const Issued& signer, const std::vector<Certificate>& carried, Time time, int hashType,
                   const std::vector<std::string>& hashes) {
    std::vector<Certificate> certificates{signer.certificate};
    certificates.insert(certificates.end(), carried.begin(), carried.end());
    const std::string chain = certificateSequence(certificates);
    std::string content = "g8tk" + littleEndian(2, 2) + littleEndian(20, 2) + littleEndian(hashes.size(), 4) +
                          littleEndian(0, 4) +
                          littleEndian(static_cast<std::uint64_t>(time.time_since_epoch().count()), 8);
    for (const std::string& hash : hashes) content += static_cast<char>(hashType) + hash.substr(0, 20);
    const std::string body =
        "s8ch" + littleEndian(1, 4) + littleEndian(chain.size(), 4) + littleEndian(content.size(), 4) + chain + content;
    std::string signature = plainSignature(signer, "SHA256", body);
    signature.resize(72);
    return body + signature;
}

} // namespace corvane::TestSupport
