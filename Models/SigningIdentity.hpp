#pragma once

#include <compare>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

/// An identity of the user's keychains that can sign installer packages.
struct SigningIdentity {
    /// The certificate's common name, just as the keychain tool prints it.
    std::string name;

    const std::string& id() const { return name; }
    auto operator<=>(const SigningIdentity&) const = default;

    /// The Developer ID Installer identities in the listing of `security find-identity`: every line's text between its
    /// first and last double quote that begins with "Developer ID Installer"; first occurrences, in listing order.
    static std::vector<SigningIdentity> parse(std::string_view findIdentityOutput);
};

} // namespace corvane

template <>
struct std::hash<corvane::SigningIdentity> {
    std::size_t operator()(const corvane::SigningIdentity& identity) const noexcept {
        return std::hash<std::string>()(identity.name);
    }
};
