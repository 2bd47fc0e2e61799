#include "Platform/Formats/Digest.hpp"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <stdexcept>

namespace corvane {
namespace {

struct Algorithm {
    DigestKind kind;
    std::string_view name;
    std::size_t size;
    const EVP_MD* (*implementation)();
};

constexpr std::array<Algorithm, 5> algorithms{{{DigestKind::md5, "md5", 16, &EVP_md5},
                                               {DigestKind::sha1, "sha1", 20, &EVP_sha1},
                                               {DigestKind::sha256, "sha256", 32, &EVP_sha256},
                                               {DigestKind::sha384, "sha384", 48, &EVP_sha384},
                                               {DigestKind::sha512, "sha512", 64, &EVP_sha512}}};

const Algorithm& algorithm(DigestKind kind) { return algorithms.at(static_cast<std::size_t>(kind)); }

void require(int status) {
    if (status != 1) throw std::runtime_error("The cryptographic library cannot compute a digest");
}

bool sameLetter(char left, char right) { return (left >= 'A' && left <= 'Z' ? left + ('a' - 'A') : left) == right; }

} // namespace

std::optional<DigestKind> digestKind(std::string_view name) {
    const auto* found = std::find_if(algorithms.begin(), algorithms.end(), [&](const Algorithm& each) {
        return std::equal(name.begin(), name.end(), each.name.begin(), each.name.end(), sameLetter);
    });
    if (found == algorithms.end()) return std::nullopt;
    return found->kind;
}

std::string_view digestName(DigestKind kind) { return algorithm(kind).name; }
std::size_t digestSize(DigestKind kind) { return algorithm(kind).size; }

void Hasher::Free::operator()(evp_md_ctx_st* context) const { EVP_MD_CTX_free(context); }

Hasher::Hasher(DigestKind kind) : context_(EVP_MD_CTX_new()) {
    if (!context_) throw std::bad_alloc();
    require(EVP_DigestInit_ex(context_.get(), algorithm(kind).implementation(), nullptr));
}

void Hasher::update(std::string_view bytes) { require(EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size())); }

std::string Hasher::finish() {
    std::array<unsigned char, EVP_MAX_MD_SIZE> value{};
    unsigned int size = 0;
    require(EVP_DigestFinal_ex(context_.get(), value.data(), &size));
    return {value.begin(), value.begin() + size};
}

void Hasher::restart() { require(EVP_DigestInit_ex(context_.get(), nullptr, nullptr)); }

std::string digest(DigestKind kind, std::string_view bytes) {
    Hasher hasher(kind);
    hasher.update(bytes);
    return hasher.finish();
}

std::string hexadecimal(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const char character : bytes) {
        const auto byte = static_cast<unsigned char>(character);
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

std::optional<std::string> fromHexadecimal(std::string_view text) {
    if (text.size() % 2 != 0) return std::nullopt;
    std::string bytes;
    for (std::size_t at = 0; at < text.size(); at += 2) {
        const char* pair = text.data() + at;
        unsigned char byte = 0;
        if (std::from_chars(pair, pair + 2, byte, 16).ptr != pair + 2) return std::nullopt;
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

} // namespace corvane
