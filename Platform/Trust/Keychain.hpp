#pragma once

#include "Platform/Trust/CertificateChain.hpp"
#include "Platform/Trust/PrivateKey.hpp"
#include "Support/FileURL.hpp"

#include <string>
#include <vector>

namespace corvane {

/// What the clock says.
inline Time currentTime() { return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()); }

/// What a user signs with and whom an administrator trusts, as files in a folder closed to other users:
///
///     identities/<SHA1>.pem     private key (not encrypted), its certificate, and the certificates that came with it
///     certificates/<SHA256>.pem issuers' certificates that came without a key
///     roots/<SHA256>.pem        trusted besides Apple's roots
///     timestamp-authority       one line: the authority's address
///     lock                      held while something changes
///
/// Files have mode 0600 and folders 0700. Keys are not used, and roots are not trusted, where other users could get at
/// them. Each file is written whole, so reading needs no lock; a missing folder is an empty keychain. Everything here
/// throws FileError and FormatError, naming the file.
class Keychain {
  public:
    explicit Keychain(FileURL folder) : folder_(std::move(folder)) {}
    /// ${XDG_DATA_HOME:-~/.local/share}/corvane/keychain
    static Keychain ofUser();

    const FileURL& folder() const { return folder_; }

    /// Sorted by name, then by fingerprint.
    std::vector<Identity> identities() const;
    /// Certificates that complete the chains of identities.
    std::vector<Certificate> intermediates() const;
    std::vector<Certificate> trustedRoots() const;
    /// The address that was set, else `TimestampAuthority::defaultAddress`.
    std::string timestampAuthority() const;

    /// The roots of this keychain and Apple's, judging at a time.
    TrustSettings trustSettings(Time now) const;
    /// The chain of an identity as a signer of packages at a time.
    CertificateChain chain(const Identity& identity, Time now) const;

    void add(const Identity& identity) const;
    void addIntermediate(const Certificate& certificate) const;
    /// @throws FormatError for anything but an authority's certificate that it issued itself
    void addTrustedRoot(const Certificate& root) const;
    void setTimestampAuthority(const std::string& address) const;
    /// Removes the identity with a fingerprint, given in either case; false when there is none.
    bool removeIdentity(const std::string& fingerprint) const;

  private:
    void write(const FileURL& relativePath, const std::string& content) const;

    FileURL folder_;
};

} // namespace corvane
