#pragma once

#include <array>
#include <string_view>

/// Apple's own certificate extensions and key usages, as dotted object identifiers.
namespace corvane::AppleMarkers {

constexpr const char* developerIDApplication = "1.2.840.113635.100.6.1.13";
constexpr const char* developerIDInstaller = "1.2.840.113635.100.6.1.14";
constexpr const char* developerIDAuthority = "1.2.840.113635.100.6.2.6";
constexpr const char* appStoreApplication = "1.2.840.113635.100.6.1.9";
/// When the developer's account was opened: a text, "20210422000000Z".
constexpr const char* developerSince = "1.2.840.113635.100.6.1.33";
constexpr const char* thirdPartyInstaller = "1.2.840.113635.100.6.1.8";
constexpr const char* appStoreInstaller = "1.2.840.113635.100.6.1.10";
constexpr const char* developerAuthority = "1.2.840.113635.100.6.2.1";
constexpr const char* ticketSigner = "1.2.840.113635.100.6.1.30";
constexpr const char* ticketAuthority = "1.2.840.113635.100.6.2.17";

/// The common name of the authority that signs the system's own code.
constexpr const char* systemAuthorityName = "Apple Code Signing Certification Authority";

constexpr const char* usageSoftwareUpdate = "1.2.840.113635.100.4.1";
constexpr const char* usageThirdPartyInstaller = "1.2.840.113635.100.4.9";
constexpr const char* usageDeveloperIDInstaller = "1.2.840.113635.100.4.13";

/// The extensions that Apple marks critical and whose meaning is known here: the kinds of a developer's leaf.
constexpr std::array<std::string_view, 11> knownCriticalExtensions{
    "1.2.840.113635.100.6.1.2",
    "1.2.840.113635.100.6.1.4",
    "1.2.840.113635.100.6.1.7",
    thirdPartyInstaller,
    appStoreApplication,
    appStoreInstaller,
    "1.2.840.113635.100.6.1.12",
    developerIDApplication,
    developerIDInstaller,
    "1.2.840.113635.100.6.1.18",
    ticketSigner,
};

} // namespace corvane::AppleMarkers
