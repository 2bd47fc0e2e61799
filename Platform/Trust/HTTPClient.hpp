#pragma once

#include <chrono>
#include <cstddef>
#include <stdexcept>
#include <string>

/// Requests to web servers. Only http and https are spoken, and redirections are not followed.
namespace corvane::HTTPClient {

/// No usable answer. The text names the address and the cause: the system's reason, the time that ran out, the status.
class Error : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// How long an answer may take, and how many bytes it may have.
struct Limits {
    std::chrono::milliseconds connect{10'000};
    /// From the start of the request to the last byte of the answer.
    std::chrono::milliseconds total{30'000};
    std::size_t size = std::size_t{1} << 20;
};

/// Sends a body and returns that of the answer, whose status must be 200. Uses the proxy that the environment names.
/// @throws Error
std::string post(const std::string& address, const std::string& contentType, const std::string& body,
                 const Limits& limits);

/// Checks that a text is an http or https address with a host, and without a user or a password.
/// @throws Error
void requireAddress(const std::string& address);

} // namespace corvane::HTTPClient
