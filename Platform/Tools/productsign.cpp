// Signs a product archive with an identity of the keychain.

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/PackageSignature/SignedPackageWriter.hpp"
#include "Platform/Tools/Termination.hpp"
#include "Platform/Tools/Tool.hpp"
#include "Platform/Trust/AppleMarkers.hpp"
#include "Platform/Trust/Keychain.hpp"
#include "Platform/Trust/TimestampAuthority.hpp"
#include "Support/CancellationError.hpp"
#include "Support/Text.hpp"

#include <algorithm>
#include <charconv>
#include <cstdlib>

namespace corvane::Tools {
namespace {

constexpr const char* usage = "Usage: productsign [--timestamp | --timestamp=none] --sign IDENTITY INPUT OUTPUT";

/// A failure with all its lines, the last without a line feed.
struct SigningFailure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Call {
    std::string identity, input, output;
    bool wantsTimestamp = true;
};

Call parse(const Arguments& arguments) {
    Call call;
    std::vector<std::string> operands;
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        const std::string& argument = arguments[index];
        if (argument == "--sign" && index + 1 < arguments.size()) {
            call.identity = arguments[++index];
        } else if (argument == "--timestamp" || argument == "--timestamp=none") {
            call.wantsTimestamp = argument == "--timestamp";
        } else if (argument.starts_with("-")) {
            throw UsageError(usage);
        } else {
            operands.push_back(argument);
        }
    }
    if (call.identity.empty() || operands.size() != 2) throw UsageError(usage);
    call.input = operands[0];
    call.output = operands[1];
    return call;
}

/// The output is a new file: what is signed stays as it is.
void requireDifferentFiles(const Call& call) {
    std::error_code ignored;
    if (standardized(call.input) != standardized(call.output) &&
        !std::filesystem::equivalent(call.input, call.output, ignored)) {
        return;
    }
    throw SigningFailure("productsign: error: The signed product cannot take the place of the unsigned one.");
}

/// SOURCE_DATE_EPOCH, where it is set, stands for the clock in what is written.
Time signingTime() {
    const char* epoch = std::getenv("SOURCE_DATE_EPOCH");
    if (epoch == nullptr) return currentTime();
    const std::string_view text(epoch);
    std::int64_t seconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    if (error != std::errc() || end != text.data() + text.size() || seconds < 0) {
        throw SigningFailure("productsign: error: SOURCE_DATE_EPOCH is no number of seconds: " + std::string(text));
    }
    return Time(std::chrono::seconds(seconds));
}

std::string notFound(const std::string& name) {
    return "productsign: error: Could not find appropriate signing identity for “" + name + "”.";
}

/// Whether the certificate is for code alone. One that states no use may sign packages as well.
bool isOnlyForCode(const Certificate& certificate) {
    constexpr const char* codeSigning = "1.3.6.1.5.5.7.3.3";
    return (certificate.hasExtension(AppleMarkers::developerIDApplication) ||
            certificate.hasExtendedKeyUsage(codeSigning)) &&
           !certificate.hasExtension(AppleMarkers::developerIDInstaller) &&
           !certificate.hasExtendedKeyUsage(AppleMarkers::usageDeveloperIDInstaller) &&
           !certificate.hasExtendedKeyUsage(AppleMarkers::usageThirdPartyInstaller);
}

struct Candidate {
    Identity identity;
    CertificateChain chain;
};

/// The identities with a common name or a fingerprint.
std::vector<Candidate> candidates(const Keychain& keychain, const std::string& name) {
    std::vector<Candidate> found;
    const Time now = currentTime();
    for (const Identity& identity : keychain.identities()) {
        const bool isNamed =
            identity.name() == name || Text::lowercased(identity.fingerprint()) == Text::lowercased(name);
        if (isNamed) found.push_back({identity, keychain.chain(identity, now)});
    }
    return found;
}

std::string reason(const CertificateChain& chain) {
    return chain.expired ? "a certificate of its chain has expired" : chain.problem;
}

/// The one identity that can sign packages under this name.
Candidate chooseIdentity(const Keychain& keychain, const std::string& name) {
    std::vector<Candidate> found = candidates(keychain, name);
    if (found.empty()) throw SigningFailure(notFound(name));
    std::erase_if(found, [](const Candidate& each) { return isOnlyForCode(each.identity.certificate); });
    if (found.empty()) {
        throw SigningFailure(notFound(name) + " An installer signing identity (not an application signing identity) "
                                              "is required for signing flat-style products.");
    }
    const std::string firstReason = reason(found.front().chain);
    std::erase_if(found, [](const Candidate& each) { return !each.chain.isTrusted(); });
    if (found.empty())
        throw SigningFailure(notFound(name) + "\nproductsign: the identity is not valid: " + firstReason);
    if (found.size() == 1) return found.front();
    std::string text = notFound(name) + "\nproductsign: several identities have this name; sign with one of:";
    for (const Candidate& each : found) text += "\n  " + each.identity.fingerprint();
    throw SigningFailure(text);
}

/// The chain and, where its certificate is in the keychain, the root. Of Apple's own roots only the names and keys are
/// known here, which are not what a signature carries.
std::vector<Certificate> certificatesToEmbed(const Keychain& keychain, const Candidate& candidate) {
    std::vector<Certificate> embedded = candidate.chain.certificates;
    std::vector<Certificate> known = candidate.identity.chain;
    for (const auto& others : {keychain.intermediates(), keychain.trustedRoots()}) {
        known.insert(known.end(), others.begin(), others.end());
    }
    const auto root = std::find_if(known.begin(), known.end(), [&](const Certificate& certificate) {
        return certificate.sha256() == candidate.chain.anchor->sha256;
    });
    if (root != known.end() && *root != embedded.front()) embedded.push_back(*root);
    return embedded;
}

std::string timestampFailure(const TimestampError& error) {
    using Kind = TimestampError::Kind;
    const auto text = [&] {
        switch (error.kind()) {
        case Kind::serviceNotAvailable:
            return "The timestamp service is not available. (-67885)";
        case Kind::missing:
            return "A timestamp was expected but was not found. (-67882)";
        case Kind::notValid:
            return "The timestamp was not valid. (-67883)";
        case Kind::notTrusted:
            break;
        }
        return "The timestamp was not trusted. (-67884)";
    };
    return std::string("CMS signature encoding failed: ") + text() +
           "\nproductsign: error: Failed to sign the product.\nproductsign: " + error.what();
}

PackageSigning::Signer makeSigner(const Keychain& keychain, const Candidate& candidate, bool wantsTimestamp) {
    PackageSigning::Signer signer{.key = candidate.identity.key,
                                  .certificates = certificatesToEmbed(keychain, candidate),
                                  .signingTime = signingTime()};
    if (wantsTimestamp) {
        signer.timestamp = [authority = TimestampAuthority{.address = keychain.timestampAuthority()},
                            settings = keychain.trustSettings(currentTime())](std::string_view value,
                                                                              DigestKind digest) {
            return authority.token(value, digest, settings);
        };
    }
    return signer;
}

void sign(const Call& call) {
    requireDifferentFiles(call);
    const Keychain keychain = Keychain::ofUser();
    const Candidate candidate = chooseIdentity(keychain, call.identity);
    const PackageSigning::Signer signer = makeSigner(keychain, candidate, call.wantsTimestamp);
    PackageSigning::SignedPackageWriter package(call.input);
    if (call.wantsTimestamp) printError("productsign: using timestamp authority for signature\n");
    printError("productsign: signing product with identity \"" + Text::printable(candidate.identity.name()) +
               "\" from keychain " + keychain.folder().string() + "\n");
    for (std::size_t index = 1; index < signer.certificates.size(); ++index) {
        printError("productsign: adding certificate \"" + Text::printable(signer.certificates[index].commonName()) +
                   "\"\n");
    }
    package.sign(signer);
    runUntilTerminated([&](const std::stop_token& stop) {
        package.write(call.output, stop);
        return 0;
    });
    printError("productsign: Wrote signed product archive to " + call.output + "\n");
}

} // namespace

int productsign(const Arguments& arguments) {
    const Call call = parse(arguments);
    try {
        sign(call);
        return 0;
    } catch (const CancellationError&) {
        throw;
    } catch (const UsageError&) {
        throw;
    } catch (const SigningFailure& failure) {
        printError(std::string(failure.what()) + "\n");
    } catch (const TimestampError& error) {
        printError(timestampFailure(error) + "\n");
    } catch (const std::runtime_error& error) {
        printError("productsign: error: Cannot sign " + call.input + ": " + error.what() + "\n");
    }
    return 1;
}

} // namespace corvane::Tools
