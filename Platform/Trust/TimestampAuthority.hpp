#pragma once

#include "Platform/Formats/Digest.hpp"
#include "Platform/Trust/CertificateChain.hpp"
#include "Platform/Trust/HTTPClient.hpp"

#include <stdexcept>
#include <string>
#include <string_view>

namespace corvane {

/// Why there is no usable timestamp.
class TimestampError : public std::runtime_error {
  public:
    enum class Kind {
        /// No answer, or none with HTTP status 200.
        serviceNotAvailable,
        /// An answer without a token: another status than "granted", or no reply to a request for a timestamp at all.
        missing,
        /// A token that is for something else, or whose signature is wrong.
        notValid,
        /// A good token of somebody whom nobody here trusts.
        notTrusted,
    };

    /// @param cause what was seen, naming the address
    TimestampError(Kind kind, const std::string& cause) : std::runtime_error(cause), kind_(kind) {}
    Kind kind() const { return kind_; }

  private:
    Kind kind_;
};

/// A time-stamp authority that is spoken to over HTTP (RFC 3161).
struct TimestampAuthority {
    static constexpr const char* defaultAddress = "http://timestamp.apple.com/ts01";

    std::string address = defaultAddress;
    HTTPClient::Limits limits = {};

    /// A token over the digest of some bytes, checked against the request and, with its chain, against the settings.
    /// @throws TimestampError
    std::string token(std::string_view bytes, DigestKind digest, const TrustSettings& settings) const;
};

} // namespace corvane
