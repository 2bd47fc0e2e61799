#include "Platform/Formats/PackageSignature/SignedPackageWriter.hpp"

#include "Platform/Formats/ByteSource.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Xar/SealedContents.hpp"
#include "Support/AtomicFile.hpp"
#include "Support/CancellationError.hpp"

#include <vector>

namespace corvane::PackageSigning {
namespace {

/// Bytes that are copied at a time.
constexpr std::size_t bufferSize = std::size_t{1} << 20;

/// The kind that the package has, where it can be signed with it.
DigestKind signatureDigest(const Xar::Archive& archive) {
    const auto kind = archive.header().checksum;
    return !kind || *kind == DigestKind::md5 ? DigestKind::sha1 : *kind;
}

std::uint64_t roundedUp(std::uint64_t size, std::uint64_t step) { return (size + step - 1) / step * step; }

} // namespace

SignedPackageWriter::SignedPackageWriter(const FileURL& package)
    : archive_(Xar::Archive::open(package)),
      files_(filesRange(archive_)),
      checksums_(archive_.contents(), HeapChecksums::Missing::refused) {}

void SignedPackageWriter::sign(const Signer& signer) {
    if (!signer.key.isRSA()) {
        throw FormatError("The signature of a package needs an RSA key, and this identity has a key of another kind");
    }
    ReservedSpace reserved{
        .digest = signatureDigest(archive_), .rsa = signer.key.signatureSize(), .cms = minimumCMSRoom};
    for (;;) {
        const XML::Document contents = signedContents(archive_, files_, reserved, signer.certificates);
        const auto sealed = Xar::SealedContents::make(contents, reserved.digest);
        std::string cms = signer.cmsSignature(reserved.digest, sealed.checksum);
        if (cms.size() <= reserved.cms) {
            cms.resize(reserved.cms);
            start_ = sealed.start + sealed.checksum + signer.rsaSignature(reserved.digest, sealed.checksum) + cms;
            return;
        }
        // Another room means another checksum and so another timestamp, which may be a few bytes longer than this one.
        reserved.cms = roundedUp(cms.size() + 256, 1024);
    }
}

void SignedPackageWriter::write(const FileURL& output, const std::stop_token& stop) {
    AtomicFile file(output);
    file.write(start_);
    FileRange files(archive_.descriptor(), archive_.url(), archive_.heapOffset() + files_.offset, files_.length);
    std::uint64_t offset = files_.offset;
    std::vector<char> buffer(bufferSize);
    while (const std::size_t count = files.read(buffer)) {
        checkCancellation(stop);
        checksums_.update(offset, {buffer.data(), count});
        file.write({buffer.data(), count});
        offset += count;
    }
    checksums_.finish();
    checkCancellation(stop);
    file.commit();
}

} // namespace corvane::PackageSigning
