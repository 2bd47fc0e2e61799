#pragma once

#include "Platform/Trust/Certificate.hpp"

#include <string>
#include <vector>

namespace corvane {

/// A root that chains may end at: in effect a name and a public key.
struct TrustAnchor {
    /// A certificate with the root's name, key and validity. Its signature and bytes mean nothing.
    Certificate certificate;
    /// Digests of the root's real certificate, raw.
    std::string sha1, sha256;

    /// An anchor whose real certificate is at hand.
    static TrustAnchor of(const Certificate& root) { return {root, root.sha1(), root.sha256()}; }
};

/// Apple's roots, known by name and public key.
namespace AppleRoots {

/// Apple Root CA and Apple Root CA - G3.
const std::vector<TrustAnchor>& pinned();

} // namespace AppleRoots
} // namespace corvane
