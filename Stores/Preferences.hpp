#pragma once

#include <string_view>

/// The names under which a graphical front end stores its settings, and what it uses where one is missing. The
/// command-line program reads none of them.
namespace corvane::PreferenceKey {

inline constexpr std::string_view signingIdentity = "signing.identity";
inline constexpr std::string_view modernCompression = "build.modernCompression";
inline constexpr std::string_view minOSVersion = "build.minOSVersion";
inline constexpr std::string_view outputDirectory = "output.directory";
inline constexpr std::string_view writeBundleInventory = "output.writeBundleInventory";

inline constexpr bool defaultModernCompression = true;
inline constexpr std::string_view defaultMinOSVersion = "12.0";
inline constexpr bool defaultWriteBundleInventory = false;

} // namespace corvane::PreferenceKey
