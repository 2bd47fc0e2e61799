#pragma once

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/RandomAccess.hpp"

#include <memory>
#include <string>
#include <string_view>

namespace corvane::Udif {

/// The image can only be read with its password.
class EncryptedImage : public FormatError {
  public:
    EncryptedImage() : FormatError("disk image: it is encrypted and needs a password") {}
};

/// No key of the image opens with the password.
class WrongPassword : public FormatError {
  public:
    WrongPassword() : FormatError("disk image: the password is wrong") {}
};

/// Whether the file begins as an encrypted image does.
bool isEncrypted(const RandomAccess& file);

/// The image inside an encrypted one: AES in blocks of their own, the key wrapped with a password.
class EncryptedAccess : public RandomAccess {
  public:
    /// @throws WrongPassword; FormatError for damage and for kinds of encryption that are not supported
    EncryptedAccess(std::unique_ptr<RandomAccess> file, std::string_view password);
    ~EncryptedAccess() override;

    std::uint64_t size() const override;
    void read(std::uint64_t offset, std::span<char> buffer) const override;

  private:
    struct Header;
    struct Contexts;
    void decryptBlock(const Contexts& contexts, std::uint64_t number, std::span<char> stored,
                      std::span<char> plain) const;

    std::unique_ptr<RandomAccess> file_;
    std::unique_ptr<Header> header_;
    std::string cipherKey_;
    std::string macKey_;
};

} // namespace corvane::Udif
