#pragma once

#include "Platform/Trust/CertificateChain.hpp"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

/// What Apple's notary service hands out and a developer staples to a package or an application: a signed list of the
/// digests that the service has accepted.
class NotarizationTicket {
  public:
    /// How a digest was made. Of a SHA-256 digest a ticket holds the first 20 bytes.
    enum class HashType : std::uint8_t { sha1 = 1, sha256 = 2 };

    /// Bytes of every digest in a ticket.
    static constexpr std::size_t hashSize = 20;

    /// @throws FormatError
    static NotarizationTicket parse(std::string_view bytes);

    /// When the service issued the ticket.
    Time time() const { return time_; }
    /// Whether the ticket names a digest; of a longer one the first 20 bytes count.
    bool names(HashType type, std::string_view digest) const;

    /// Checks that the service signed the ticket: the signature over header, certificates and content, and the signer's
    /// chain at the ticket's time, which must be that of the service and end at Apple Root CA - G3. That the ticket has
    /// not been withdrawn since can only be asked online.
    /// @throws FormatError saying which of these fails
    void verify(const std::vector<TrustAnchor>& appleRoots = AppleRoots::pinned()) const;

  private:
    struct Record {
        std::uint8_t type = 0;
        std::string hash;
    };

    void readContent(std::string_view content, std::uint64_t base);

    std::vector<Certificate> certificates_;
    std::vector<Record> records_;
    Time time_;
    std::string signedBytes_;
    std::string signature_;
};

} // namespace corvane
