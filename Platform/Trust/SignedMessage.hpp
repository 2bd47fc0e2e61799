#pragma once

#include "Platform/Trust/Certificate.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

/// A signature in the Cryptographic Message Syntax (SignedData) with one signer.
class SignedMessage {
  public:
    /// Zero bytes behind the message are padding. @param name how errors call the data
    /// @throws FormatError
    static SignedMessage parse(std::string_view bytes, const std::string& name);

    /// All certificates that the message carries, in its order.
    const std::vector<Certificate>& certificates() const { return certificates_; }
    /// The one that the signer names. @throws FormatError when the message does not carry it
    const Certificate& signer() const;

    /// Object identifier of the content's type, as dotted text.
    const std::string& contentType() const { return contentType_; }
    /// The content that travels in the message; absent for a detached signature.
    const std::optional<std::string>& content() const { return content_; }
    /// Raw value of the signature.
    const std::string& signatureValue() const { return signatureValue_; }

    /// The values of a signed attribute, each as it stands, in their order; empty when there is none.
    /// @throws FormatError when the attribute stands there more than once
    std::vector<std::string> signedAttribute(const std::string& oid) const;
    /// The RFC 3161 token among the unsigned attributes. @throws FormatError when there are several
    std::optional<std::string> timestampToken() const;

    /// Checks the signer's signature over the raw signed attributes, and that they name this content and its type. A
    /// message without signed attributes, as packages of 2020 and 2021 have it, is signed over plain data directly.
    /// Says nothing about the signer's chain.
    /// @throws FormatError saying which of these fails
    void verify(std::string_view content) const;

  private:
    struct Attribute {
        std::string oid;
        std::vector<std::string> values;
    };

    void readSignedData(std::string_view bytes);
    void readSigner(std::string_view bytes);
    std::vector<Attribute> readAttributes(std::string_view content) const;
    std::vector<std::string> values(const std::vector<Attribute>& attributes, const std::string& oid) const;
    std::string singleValue(const std::string& oid) const;
    void checkSignedAttributes(std::string_view content) const;
    std::string signedBytes(std::string_view content) const;

    std::string name_;
    std::vector<Certificate> certificates_;
    std::string contentType_;
    std::optional<std::string> content_;
    /// Issuer (a Name) and serial number (an INTEGER) in DER, or the subject key identifier alone.
    std::string issuer_, serial_, keyIdentifier_;
    std::string digestAlgorithm_, signatureAlgorithm_;
    /// The signed attributes as they stand, tag and all; empty when there are none.
    std::string rawSignedAttributes_;
    std::vector<Attribute> signedAttributes_, unsignedAttributes_;
    std::string signatureValue_;
};

} // namespace corvane
