#pragma once

#include "Platform/Trust/KeyFile.hpp"

#include <optional>
#include <string>

/// The file that other systems export keys and certificates in.
namespace corvane::PKCS12 {

/// Nothing when the bytes are something else. Old files are encrypted with ciphers of OpenSSL's legacy provider, which
/// is loaded for the time of the call where it is installed.
/// @throws FormatError
std::optional<KeyFile> parse(const std::string& bytes, const std::string& name, const PassphraseSource& passphrase);

} // namespace corvane::PKCS12
