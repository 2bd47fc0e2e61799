#include "Platform/Formats/CodeSignature/CodeSigner.hpp"

#include "Platform/Trust/BerReader.hpp"
#include "Platform/Trust/OpenSSLOwners.hpp"
#include "Platform/Trust/SignedMessage.hpp"
#include "Platform/Trust/TimestampToken.hpp"
#include "Support/PropertyList.hpp"

#include <algorithm>
#include <ctime>

namespace corvane::CodeSignature {
namespace {

constexpr const char* format = "code signature";
/// A property list of the directories' hashes, and each one's digest under the name of its algorithm.
constexpr const char* hashListAttribute = "1.2.840.113635.100.9.1";
constexpr const char* digestsAttribute = "1.2.840.113635.100.9.2";
constexpr const char* signingTimeAttribute = "1.2.840.113549.1.9.5";

[[noreturn]] void fail(const std::string& problem) { throw FormatError(std::string(format) + ": " + problem); }

/// The hashes that the list in the attribute names.
std::vector<std::string> listedHashes(const std::string& attribute) try {
    const std::string text = BerReader(attribute, format).nextOctets();
    const PropertyList::Value list = PropertyList::parse(text, format);
    const PropertyList::Value* hashes = list.find("cdhashes");
    const auto* array = hashes == nullptr ? nullptr : hashes->get<PropertyList::Array>();
    if (array == nullptr) fail("the signed list of hashes is none");
    std::vector<std::string> found;
    for (const PropertyList::Value& each : *array) {
        const auto* hash = each.get<PropertyList::Data>();
        found.push_back(hash == nullptr ? std::string() : hash->bytes);
    }
    return found;
} catch (const PropertyList::Error& error) {
    throw FormatError(error.what());
}

std::string_view algorithmOf(DigestKind kind) {
    switch (kind) {
    case DigestKind::sha1:
        return "1.3.14.3.2.26";
    case DigestKind::sha256:
        return "2.16.840.1.101.3.4.2.1";
    case DigestKind::sha384:
        return "2.16.840.1.101.3.4.2.2";
    default:
        return "";
    }
}

bool namesDigest(const std::string& value, const CodeDirectory& directory) {
    BerReader outer(value, format);
    BerReader pair = outer.inside(outer.next(BerTag::sequence));
    const std::string algorithm = pair.nextObjectIdentifier();
    return algorithm == algorithmOf(directory.digestKind()) && pair.nextOctets() == directory.fullHash();
}

/// The message is over the first directory only; the others are as good as its signed attributes say.
void checkDirectories(const SignedMessage& message, const CodeDirectories& directories) {
    const auto lists = message.signedAttribute(hashListAttribute);
    const auto digests = message.signedAttribute(digestsAttribute);
    if (lists.empty() && digests.empty() && directories.all.size() > 1) {
        fail("the signature does not speak for all directories");
    }
    for (const std::string& list : lists) {
        if (listedHashes(list) != directories.cdhashes()) fail("the signed list is of other directories");
    }
    if (digests.empty()) return;
    const bool areNamed =
        std::all_of(directories.all.begin(), directories.all.end(), [&](const CodeDirectory& directory) {
            return std::any_of(digests.begin(), digests.end(),
                               [&](const std::string& value) { return namesDigest(value, directory); });
        });
    if (digests.size() != directories.all.size() || !areNamed) fail("the signed digests are of other directories");
}

std::optional<Time> signingTime(const SignedMessage& message) {
    const auto values = message.signedAttribute(signingTimeAttribute);
    if (values.empty()) return std::nullopt;
    const auto* bytes = reinterpret_cast<const unsigned char*>(values.front().data());
    const OpenSSL::Owner<ASN1_TIME, ASN1_TIME_free> time(
        d2i_ASN1_TIME(nullptr, &bytes, static_cast<long>(values.front().size())));
    std::tm parts{};
    if (!time || ASN1_TIME_to_tm(time.get(), &parts) != 1) {
        OpenSSL::takeError();
        fail("unreadable signing time");
    }
    return Time(std::chrono::seconds(::timegm(&parts)));
}

/// The certificates that issued themselves.
std::vector<Certificate> rootsAmong(const std::vector<Certificate>& certificates) {
    std::vector<Certificate> roots;
    std::copy_if(certificates.begin(), certificates.end(), std::back_inserter(roots), [](const Certificate& each) {
        return X509_NAME_cmp(X509_get_subject_name(each.x509()), X509_get_issuer_name(each.x509())) == 0;
    });
    return roots;
}

/// The signer's chain at a time, if need be to a root that travels in the message.
void judgeChain(CodeSigner& signer, const SignedMessage& message, const TrustSettings& settings, Time time) {
    const auto chainTo = [&](const TrustSettings& trust) {
        return evaluateChain(message.signer(), message.certificates(), trust, time, ChainPurpose::codeSigning);
    };
    signer.chain = chainTo(settings);
    signer.rootTravels = false;
    if (signer.chain.anchor) return;
    CertificateChain chain =
        chainTo({.extraRoots = rootsAmong(message.certificates()), .now = settings.now, .appleRoots = {}});
    if (!chain.anchor) return;
    chain.owner = AnchorOwner::nobody;
    signer.chain = std::move(chain);
    signer.rootTravels = true;
}

/// The settings, and the roots that travel with the signature and with its timestamp: a signer's own root may be one of
/// them.
TrustSettings withTravellingRoots(TrustSettings settings, const SignedMessage& message, const std::string& token) {
    for (const auto& carried : {message.certificates(), SignedMessage::parse(token, "timestamp").certificates()}) {
        const std::vector<Certificate> roots = rootsAmong(carried);
        settings.extraRoots.insert(settings.extraRoots.end(), roots.begin(), roots.end());
    }
    return settings;
}

/// Why the authority of a timestamp may not speak about the signer's chain; empty when it may.
std::string problemOf(const TimestampToken& timestamp, const CodeSigner& signer) {
    if (!timestamp.chain.isTrusted()) return "the authority of the timestamp is not trusted";
    const bool needsApple = signer.chain.owner == AnchorOwner::apple;
    return needsApple && timestamp.chain.owner != AnchorOwner::apple ? "the authority of the timestamp is not Apple's"
                                                                     : "";
}

void judge(CodeSigner& signer, const SignedMessage& message, const TrustSettings& settings) {
    if (const auto token = message.timestampToken()) {
        auto timestamp = TimestampToken::verify(*token, message.signatureValue(), settings);
        judgeChain(signer, message, settings, timestamp.time);
        // Whoever brings a root along may bring an authority's as well.
        if (signer.rootTravels && !timestamp.chain.isTrusted()) {
            const TrustSettings trust = withTravellingRoots(settings, message, *token);
            timestamp = TimestampToken::verify(*token, message.signatureValue(), trust);
        }
        signer.timestampProblem = problemOf(timestamp, signer);
        if (signer.timestampProblem.empty()) {
            signer.timestamp = timestamp.time;
            return;
        }
    }
    judgeChain(signer, message, settings, settings.now);
}

} // namespace

std::vector<Certificate> CodeSigner::certificates() const {
    std::vector<Certificate> found = chain.certificates;
    // One that issued itself is leaf and root at once.
    if (chain.anchor && !(found.back() == chain.anchor->certificate)) found.push_back(chain.anchor->certificate);
    return found;
}

CodeSigner CodeSigner::verify(const std::string& cms, const CodeDirectories& directories,
                              const TrustSettings& settings) {
    const auto message = SignedMessage::parse(cms, format);
    if (message.content()) fail("expected a detached message, found content in it");
    message.verify(directories.all.front().blob());
    checkDirectories(message, directories);
    CodeSigner signer;
    signer.signingTime = CodeSignature::signingTime(message);
    judge(signer, message, settings);
    return signer;
}

} // namespace corvane::CodeSignature
