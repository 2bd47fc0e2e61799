#pragma once

#include "Platform/Trust/PrivateKey.hpp"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

/// Says the passphrase of a file. It is called only when one is needed, and at most once a file.
using PassphraseSource = std::function<std::string()>;

/// The keys and certificates of a file, in the file's order.
struct KeyFile {
    std::vector<PrivateKey> keys;
    std::vector<Certificate> certificates;

    /// Reads PKCS#12, PEM, or a single certificate in DER. For PKCS#12 the empty passphrase is tried first.
    /// @param name how errors call the file
    /// @throws FormatError, also for a wrong passphrase and for a cipher that this system's OpenSSL lacks
    static KeyFile parse(const std::string& bytes, const std::string& name, const PassphraseSource& passphrase);

    /// Every key with each certificate that belongs to it. The certificates of no key are the chain of them all.
    /// @throws FormatError when a key has no certificate
    std::vector<Identity> identities(const std::string& name) const;
};

} // namespace corvane
