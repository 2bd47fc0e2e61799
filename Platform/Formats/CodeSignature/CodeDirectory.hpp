#pragma once

#include "Platform/Formats/ByteCursor.hpp"
#include "Platform/Formats/CodeSignature/Components.hpp"
#include "Platform/Formats/Digest.hpp"
#include "Platform/Formats/FormatError.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::CodeSignature {

/// A directory of digests: of the pages of the code, and of the other components. Digests of the kind "SHA-256 cut to
/// 20 bytes" are compared by those bytes.
class CodeDirectory {
  public:
    /// Bits of `flags`.
    static constexpr std::uint32_t adhoc = 0x2;
    static constexpr std::uint32_t forcedExpiration = 0x400;

    /// The format's numbers of digests.
    enum class HashType : std::uint8_t { sha1 = 1, sha256 = 2, sha256Truncated = 3, sha384 = 4 };

    /// @param blob header included
    /// @throws FormatError; `UnsupportedVersion` for a version outside 0x20001 to 0x2f000, an unknown digest, scattered
    /// code
    static CodeDirectory parse(std::string blob);

    const std::string& blob() const { return blob_; }
    std::uint32_t version() const { return version_; }
    std::uint32_t flags() const { return flags_; }
    bool isAdhoc() const { return (flags_ & adhoc) != 0; }
    const std::string& identifier() const { return identifier_; }
    const std::optional<std::string>& teamIdentifier() const { return teamIdentifier_; }
    std::uint8_t platform() const { return platform_; }
    /// "14.2.0"; absent before version 0x20500 and when zero.
    std::optional<std::string> runtimeVersion() const;

    HashType hashType() const { return hashType_; }
    DigestKind digestKind() const;
    /// In bytes, as stored.
    std::size_t hashSize() const { return hashSize_; }

    /// Bytes of code that are signed, from the start of the slice or file on.
    std::uint64_t codeLimit() const { return codeLimit_; }
    /// In bytes; 0 when one digest covers everything.
    std::uint64_t pageSize() const { return pageSize_; }
    std::uint32_t codeSlotCount() const { return codeSlotCount_; }
    std::uint32_t specialSlotCount() const { return specialSlotCount_; }
    /// Digest of a page as stored. @param index below `codeSlotCount`
    std::string_view codeSlot(std::uint32_t index) const;
    /// Digest of a component as stored; nothing when the directory has none, or only zeros.
    std::optional<std::string_view> specialSlot(Slot slot) const;
    /// Whether a component's bytes have the digest that is stored for it. False when none is stored.
    bool matches(Slot slot, std::string_view component) const;

    /// The whole digest of the directory, of its own kind, and what the system knows the code by: its first 20 bytes.
    const std::string& fullHash() const { return fullHash_; }
    std::string cdhash() const { return fullHash_.substr(0, 20); }

  private:
    void readFields(std::string_view blob);
    void readHashType(std::uint8_t number);
    void readPageSize(std::uint8_t exponent);
    void readNewerFields(ByteCursor& fields, std::string_view blob);
    void checkSizes(std::size_t size) const;

    std::string blob_, identifier_, fullHash_;
    std::optional<std::string> teamIdentifier_;
    std::uint32_t version_ = 0, flags_ = 0, codeSlotCount_ = 0, specialSlotCount_ = 0, runtimeVersion_ = 0;
    std::uint64_t codeLimit_ = 0, pageSize_ = 0;
    std::size_t hashOffset_ = 0, hashSize_ = 0;
    HashType hashType_ = HashType::sha256;
    std::uint8_t platform_ = 0;
};

/// A directory of a version or with digests that nobody here can check.
class UnsupportedVersion : public FormatError {
  public:
    using FormatError::FormatError;
};

/// All directories of a signature.
struct CodeDirectories {
    /// That of slot 0 first, then the alternates in their order.
    std::vector<CodeDirectory> all;

    /// The one whose digests are strongest: its flags, identifier and hash stand for the code.
    const CodeDirectory& best() const;
    /// The hash of each, those of weaker digests first.
    std::vector<std::string> cdhashes() const;

    /// @throws FormatError as `CodeDirectory::parse` does, and when two have the same kind of digests; the components
    /// must have a directory
    static CodeDirectories of(const Components& components);
};

} // namespace corvane::CodeSignature
