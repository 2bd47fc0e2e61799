#pragma once

#include "Platform/Formats/Digest.hpp"
#include "Tests/Platform/Trust/TestAuthority.hpp"

#include <optional>
#include <string>
#include <vector>

namespace corvane::TestSupport {

/// A file of a package. The checksum is that of the content unless another one is given; an empty one leaves it out.
struct PackageFile {
    std::string name;
    std::string content;
    std::optional<std::string> checksum = std::nullopt;
    /// Moves the start of the data that are described, not the data.
    int shift = 0;
};

/// A xar archive written by hand, apart from the code that is tested.
struct PackageShape {
    DigestKind kind = DigestKind::sha1;
    const Issued* rsaSigner = nullptr;
    /// Hashes the checksum once more, as some systems did.
    bool doubledRSA = false;
    const Issued* messageSigner = nullptr;
    MessageShape message = {};
    std::vector<Certificate> carried = {};
    std::vector<PackageFile> files = {{"Bom", "a list of files"}, {"Payload", std::string(3000, 'p')}};
    /// Signs other bytes than the checksum.
    bool wrongRSA = false, wrongMessage = false;
};

struct TestPackage {
    std::string bytes;
    /// Digest of the compressed table of contents, raw.
    std::string checksum;
    std::size_t heapOffset = 0;
};

TestPackage makePackage(const PackageShape& shape);

/// What a ticket looks like behind a package.
std::string stapled(const std::string& ticket);

} // namespace corvane::TestSupport
