#include "Platform/Trust/CertificateChain.hpp"

#include "Platform/Trust/AppleMarkers.hpp"
#include "Platform/Trust/OpenSSLOwners.hpp"

#include <openssl/err.h>

#include <algorithm>
#include <array>
#include <new>

namespace corvane {
namespace {

using Store = OpenSSL::Owner<X509_STORE, X509_STORE_free>;
using StoreContext = OpenSSL::Owner<X509_STORE_CTX, X509_STORE_CTX_free>;
/// Borrows its certificates.
using BorrowedStack = OpenSSL::Owner<STACK_OF(X509), +[](STACK_OF(X509) * stack) { sk_X509_free(stack); }>;

/// Longest chain that is followed, leaf and root not counted.
constexpr int maximumIntermediates = 8;

bool isKnownExtension(X509_EXTENSION* extension) {
    const std::string oid = OpenSSL::text(X509_EXTENSION_get_object(extension));
    const auto& known = AppleMarkers::knownCriticalExtensions;
    return X509_supported_extension(extension) == 1 || std::find(known.begin(), known.end(), oid) != known.end();
}

bool hasOnlyKnownCriticalExtensions(const X509* certificate) {
    for (int index = 0; index < X509_get_ext_count(certificate); ++index) {
        X509_EXTENSION* extension = X509_get_ext(certificate, index);
        if (X509_EXTENSION_get_critical(extension) == 1 && !isKnownExtension(extension)) return false;
    }
    return true;
}

/// Called for every objection while a chain is checked; 1 goes on. Expiry is noted in the chain that belongs to the
/// context, so that one that has only expired is told from one that never was good.
int judge(int ok, X509_STORE_CTX* context) {
    if (ok == 1) return 1;
    const int error = X509_STORE_CTX_get_error(context);
    if (error == X509_V_ERR_UNHANDLED_CRITICAL_EXTENSION) {
        return hasOnlyKnownCriticalExtensions(X509_STORE_CTX_get_current_cert(context)) ? 1 : 0;
    }
    if (error == X509_V_ERR_CERT_HAS_EXPIRED) {
        static_cast<CertificateChain*>(X509_STORE_CTX_get_app_data(context))->expired = true;
        return 1;
    }
    return 0;
}

Certificate copy(X509* certificate) {
    unsigned char* bytes = nullptr;
    const int length = i2d_X509(certificate, &bytes);
    const OpenSSL::Bytes owner(bytes);
    if (length <= 0) throw std::bad_alloc();
    return Certificate::parse({reinterpret_cast<char*>(bytes), static_cast<std::size_t>(length)}, "chain");
}

bool allowsAnyOf(const Certificate& leaf, std::initializer_list<const char*> usages) {
    return std::any_of(usages.begin(), usages.end(),
                       [&](const char* usage) { return leaf.hasExtendedKeyUsage(usage); });
}

constexpr const char* usageCodeSigning = "1.3.6.1.5.5.7.3.3";
constexpr const char* usageTimestamping = "1.3.6.1.5.5.7.3.8";
constexpr const char* extendedKeyUsage = "2.5.29.37";

bool allowsPurpose(const Certificate& leaf, ChainPurpose purpose) {
    if (!leaf.allowsSigningData()) return false;
    switch (purpose) {
    case ChainPurpose::packageSigning:
        return !leaf.hasExtendedKeyUsages() ||
               allowsAnyOf(leaf, {AppleMarkers::usageDeveloperIDInstaller, AppleMarkers::usageThirdPartyInstaller,
                                  AppleMarkers::usageSoftwareUpdate, usageCodeSigning});
    case ChainPurpose::codeSigning:
        return !leaf.hasExtendedKeyUsages() || leaf.hasExtendedKeyUsage(usageCodeSigning);
    case ChainPurpose::timestamping:
        return leaf.isCritical(extendedKeyUsage) && leaf.hasExtendedKeyUsage(usageTimestamping);
    case ChainPurpose::notarization:
        return leaf.hasExtension(AppleMarkers::ticketSigner);
    }
    return false;
}

Store makeStore(const std::vector<TrustAnchor>& anchors) {
    Store store(X509_STORE_new());
    for (const TrustAnchor& anchor : anchors) X509_STORE_add_cert(store.get(), anchor.certificate.x509());
    return store;
}

/// Fills in the certificates and the anchor of a finished check.
void takeChain(CertificateChain& chain, X509_STORE_CTX* context, const std::vector<TrustAnchor>& anchors) {
    const STACK_OF(X509)* found = X509_STORE_CTX_get0_chain(context);
    for (int index = 0; index < sk_X509_num(found); ++index) {
        chain.certificates.push_back(copy(sk_X509_value(found, index)));
    }
    const auto anchor = std::find_if(anchors.begin(), anchors.end(), [&](const TrustAnchor& candidate) {
        return !chain.certificates.empty() && candidate.certificate == chain.certificates.back();
    });
    if (anchor == anchors.end()) return;
    chain.anchor = *anchor;
    // A root that signs by itself is leaf and anchor in one.
    if (chain.certificates.size() > 1) chain.certificates.pop_back();
}

std::string describe(int error, const CertificateChain& chain) {
    switch (error) {
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
        return "the certificate of its issuer, " + chain.certificates.back().issuerCommonName() + ", is missing";
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
        return "the root " + chain.certificates.back().commonName() + " is not trusted";
    default:
        return X509_verify_cert_error_string(error);
    }
}

std::string problemOf(const CertificateChain& chain, const Certificate& leaf, ChainPurpose purpose) {
    if (!chain.anchor) return "the chain ends at no trusted root";
    return allowsPurpose(leaf, purpose) ? "" : "the certificate is not for this use";
}

CertificateChain evaluate(const Certificate& leaf, STACK_OF(X509) * intermediates,
                          const std::vector<TrustAnchor>& anchors, Time time, ChainPurpose purpose) {
    CertificateChain chain;
    const Store store = makeStore(anchors);
    const StoreContext context(X509_STORE_CTX_new());
    if (!store || !context || X509_STORE_CTX_init(context.get(), store.get(), leaf.x509(), intermediates) != 1) {
        throw std::bad_alloc();
    }
    X509_STORE_CTX_set_time(context.get(), 0, time.time_since_epoch().count());
    X509_STORE_CTX_set_depth(context.get(), maximumIntermediates);
    X509_STORE_CTX_set_app_data(context.get(), &chain);
    X509_STORE_CTX_set_verify_cb(context.get(), judge);
    const bool good = X509_verify_cert(context.get()) == 1;
    takeChain(chain, context.get(), anchors);
    chain.problem = good ? problemOf(chain, leaf, purpose) : describe(X509_STORE_CTX_get_error(context.get()), chain);
    ERR_clear_error();
    return chain;
}

std::vector<TrustAnchor> anchorsOf(const std::vector<Certificate>& roots) {
    std::vector<TrustAnchor> anchors;
    for (const Certificate& root : roots) anchors.push_back(TrustAnchor::of(root));
    return anchors;
}

} // namespace

bool CertificateChain::intermediateHasExtension(const std::string& oid) const {
    return certificates.size() > 1 && std::any_of(certificates.begin() + 1, certificates.end(),
                                                  [&](const Certificate& issuer) { return issuer.hasExtension(oid); });
}

CertificateChain evaluateChain(const Certificate& leaf, const std::vector<Certificate>& intermediates,
                               const TrustSettings& settings, Time time, ChainPurpose purpose) {
    const BorrowedStack stack(sk_X509_new_null());
    for (const Certificate& certificate : intermediates) sk_X509_push(stack.get(), certificate.x509());
    CertificateChain apple = evaluate(leaf, stack.get(), settings.appleRoots, time, purpose);
    if (apple.anchor) {
        if (apple.problem.empty()) apple.owner = AnchorOwner::apple;
        return apple;
    }
    CertificateChain other = evaluate(leaf, stack.get(), anchorsOf(settings.extraRoots), time, purpose);
    if (other.anchor && other.problem.empty()) other.owner = AnchorOwner::administrator;
    return other;
}

} // namespace corvane
