#include "Platform/Trust/OpenSSLOwners.hpp"

#include <openssl/err.h>

#include <array>

namespace corvane::OpenSSL {

std::string takeError() {
    const unsigned long code = ERR_peek_last_error();
    const char* reason = ERR_reason_error_string(code);
    ERR_clear_error();
    return reason != nullptr ? reason : "no reason given";
}

std::string text(const ASN1_OBJECT* object) {
    std::array<char, 128> buffer{};
    const int length = OBJ_obj2txt(buffer.data(), static_cast<int>(buffer.size()), object, 1);
    // A length past the buffer is an identifier longer than any that is known here.
    return length > 0 && length < static_cast<int>(buffer.size()) ? std::string(buffer.data()) : std::string();
}

std::string digest(const EVP_MD* algorithm, std::string_view bytes) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> result{};
    unsigned int length = 0;
    EVP_Digest(bytes.data(), bytes.size(), result.data(), &length, algorithm, nullptr);
    return {reinterpret_cast<char*>(result.data()), length};
}

bool isSignedBy(X509* certificate, const EVP_MD* algorithm, std::string_view message, std::string_view signature) {
    const auto bytes = [](std::string_view text) { return reinterpret_cast<const unsigned char*>(text.data()); };
    const DigestContext context(EVP_MD_CTX_new());
    EVP_PKEY* const key = X509_get0_pubkey(certificate);
    const bool good =
        context && key != nullptr && EVP_DigestVerifyInit(context.get(), nullptr, algorithm, nullptr, key) == 1 &&
        EVP_DigestVerify(context.get(), bytes(signature), signature.size(), bytes(message), message.size()) == 1;
    ERR_clear_error();
    return good;
}

} // namespace corvane::OpenSSL
