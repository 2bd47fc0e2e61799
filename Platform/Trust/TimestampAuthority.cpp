#include "Platform/Trust/TimestampAuthority.hpp"

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Trust/MemoryBio.hpp"
#include "Platform/Trust/TimestampToken.hpp"

#include <openssl/rand.h>

namespace corvane {
namespace {

using Kind = TimestampError::Kind;
using OpenSSL::Owner;
using Request = Owner<TS_REQ, TS_REQ_free>;
using Response = Owner<TS_RESP, TS_RESP_free>;
using Integer = Owner<ASN1_INTEGER, ASN1_INTEGER_free>;

constexpr const char* action = "cannot make a request for a timestamp";

template <class Result>
Result require(Result result) {
    return OpenSSL::require(result, action);
}

/// 64 random bits: no other request has the same, so no old reply fits.
Integer makeNonce() {
    std::uint64_t value = 0;
    require(RAND_bytes(reinterpret_cast<unsigned char*>(&value), sizeof value) == 1);
    Integer nonce(require(ASN1_INTEGER_new()));
    require(ASN1_INTEGER_set_uint64(nonce.get(), value));
    return nonce;
}

void setImprint(TS_REQ* request, std::string_view bytes, DigestKind kind) {
    const Owner<TS_MSG_IMPRINT, TS_MSG_IMPRINT_free> imprint(require(TS_MSG_IMPRINT_new()));
    const Owner<X509_ALGOR, X509_ALGOR_free> algorithm(require(X509_ALGOR_new()));
    const std::string name(digestName(kind));
    X509_ALGOR_set_md(algorithm.get(), require(EVP_get_digestbyname(name.c_str())));
    std::string value = digest(kind, bytes);
    require(TS_MSG_IMPRINT_set_algo(imprint.get(), algorithm.get()));
    require(TS_MSG_IMPRINT_set_msg(imprint.get(), reinterpret_cast<unsigned char*>(value.data()),
                                   static_cast<int>(value.size())));
    require(TS_REQ_set_msg_imprint(request, imprint.get()));
}

std::string makeRequest(std::string_view bytes, DigestKind kind, const ASN1_INTEGER* nonce) {
    const Request request(require(TS_REQ_new()));
    require(TS_REQ_set_version(request.get(), 1));
    setImprint(request.get(), bytes, kind);
    require(TS_REQ_set_nonce(request.get(), nonce));
    require(TS_REQ_set_cert_req(request.get(), 1));
    return OpenSSL::written([&](BIO* memory) { return i2d_TS_REQ_bio(memory, request.get()); });
}

/// The number and the text by which an authority refuses.
std::string refusal(TS_STATUS_INFO* info, long status) {
    std::string text = "the reply has the status " + std::to_string(status);
    const STACK_OF(ASN1_UTF8STRING)* reasons = TS_STATUS_INFO_get0_text(info);
    for (int index = 0; index < sk_ASN1_UTF8STRING_num(reasons); ++index) {
        const ASN1_UTF8STRING* reason = sk_ASN1_UTF8STRING_value(reasons, index);
        text += ", " + std::string(reinterpret_cast<const char*>(ASN1_STRING_get0_data(reason)),
                                   static_cast<std::size_t>(ASN1_STRING_length(reason)));
    }
    return text;
}

/// @throws TimestampError unless a token was granted
Response readReply(const std::string& reply, const std::string& address) {
    // OpenSSL takes no reply that grants a token and has none.
    Response response(d2i_TS_RESP_bio(OpenSSL::reading(reply).get(), nullptr));
    OpenSSL::takeError();
    if (!response) throw TimestampError(Kind::missing, address + ": the answer is no complete reply of an authority");
    TS_STATUS_INFO* info = TS_RESP_get_status_info(response.get());
    const long status = ASN1_INTEGER_get(TS_STATUS_INFO_get0_status(info));
    const bool isGranted = status == TS_STATUS_GRANTED || status == TS_STATUS_GRANTED_WITH_MODS;
    if (!isGranted) throw TimestampError(Kind::missing, address + ": " + refusal(info, status));
    return response;
}

void checkNonce(TS_RESP* response, const ASN1_INTEGER* nonce, const std::string& address) {
    const ASN1_INTEGER* found = TS_TST_INFO_get_nonce(TS_RESP_get_tst_info(response));
    if (found != nullptr && ASN1_INTEGER_cmp(found, nonce) == 0) return;
    throw TimestampError(Kind::notValid, address + ": the token answers another request");
}

/// The token with its signature, its imprint and its signer's chain checked.
std::string verified(TS_RESP* response, std::string_view bytes, const TrustSettings& settings,
                     const std::string& address) {
    PKCS7* token = TS_RESP_get_token(response);
    std::string encoded = OpenSSL::written([&](BIO* memory) { return i2d_PKCS7_bio(memory, token); });
    try {
        const CertificateChain chain = TimestampToken::verify(encoded, bytes, settings).chain;
        if (chain.isTrusted()) return encoded;
        throw TimestampError(Kind::notTrusted,
                             address + ": " + (chain.expired ? "a certificate has expired" : chain.problem));
    } catch (const FormatError& error) {
        throw TimestampError(Kind::notValid, address + ": " + error.what());
    }
}

} // namespace

std::string TimestampAuthority::token(std::string_view bytes, DigestKind digest, const TrustSettings& settings) const {
    const Integer nonce = makeNonce();
    std::string reply;
    try {
        reply =
            HTTPClient::post(address, "application/timestamp-query", makeRequest(bytes, digest, nonce.get()), limits);
    } catch (const HTTPClient::Error& error) {
        throw TimestampError(Kind::serviceNotAvailable, error.what());
    }
    const Response response = readReply(reply, address);
    checkNonce(response.get(), nonce.get(), address);
    return verified(response.get(), bytes, settings, address);
}

} // namespace corvane
