#pragma once

#include "Platform/Trust/OpenSSLOwners.hpp"

#include <climits>
#include <stdexcept>
#include <string>
#include <string_view>

/// Strings where OpenSSL wants a stream. For source files only.
namespace corvane::OpenSSL {

/// Fails with OpenSSL's reason when one of its functions returned null or no success.
template <class Result>
Result require(Result result, const char* action) {
    if (!result) throw std::runtime_error(std::string(action) + ": " + takeError());
    return result;
}

/// Reads bytes of the caller, which outlive it.
inline Bio reading(std::string_view bytes) {
    if (bytes.size() > INT_MAX) throw std::length_error("more bytes than OpenSSL can read");
    return Bio(require(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())), "cannot read bytes"));
}

/// What `write`, called with a BIO, puts there. @throws std::runtime_error when it returns no success
template <class Write>
std::string written(Write write) {
    const Bio memory(require(BIO_new(BIO_s_mem()), "cannot write bytes"));
    require(write(memory.get()) > 0, "cannot encode");
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &bytes);
    return {bytes, static_cast<std::size_t>(size)};
}

} // namespace corvane::OpenSSL
