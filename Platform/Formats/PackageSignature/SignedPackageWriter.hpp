#pragma once

#include "Platform/Formats/PackageSignature/HeapChecksums.hpp"
#include "Platform/Formats/PackageSignature/SignedContents.hpp"
#include "Platform/Formats/PackageSignature/Signer.hpp"
#include "Platform/Formats/Xar/Archive.hpp"

#include <stop_token>
#include <string>

namespace corvane::PackageSigning {

/// Signs a flat package: opens it, makes the signatures, writes the signed copy. Signatures and a stapled ticket that
/// the package had do not reach the copy. For one thread at a time.
class SignedPackageWriter {
  public:
    /// Opens a package. A file without a checksum is refused: the signature would not cover it.
    /// @throws FileError, FormatError, XML::Error
    explicit SignedPackageWriter(const FileURL& package);

    /// Makes the new start of the package. Asks for the timestamp, so it may wait. Writes nothing.
    void sign(const Signer& signer);

    /// Writes the package whose start `sign` has made, once. The file appears whole or not at all, and only when every
    /// file in it matches its checksum: the signature vouches for them.
    /// @throws FileError, FormatError; CancellationError when a stop is requested meanwhile
    void write(const FileURL& output, const std::stop_token& stop = {});

    /// The least room for the CMS signature, in bytes; unused room is filled with zeros. A larger signature gets a
    /// room of the next multiple of 1,024.
    static constexpr std::uint64_t minimumCMSRoom = 9216;

  private:
    Xar::Archive archive_;
    Xar::HeapRange files_;
    HeapChecksums::Sequence checksums_;
    /// Header, table of contents, checksum and signatures.
    std::string start_;
};

} // namespace corvane::PackageSigning
