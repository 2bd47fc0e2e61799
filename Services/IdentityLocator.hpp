#pragma once

#include "../Models/SigningIdentity.hpp"

#include <stop_token>
#include <vector>

namespace corvane::IdentityLocator {

/// The identities of the user's keychains that can sign installer packages, in the keychain tool's order. Empty also
/// when the tool cannot be asked, refuses, or is stopped. Runs a tool and waits for it, on the calling thread.
std::vector<SigningIdentity> installerIdentities(const std::stop_token& stop = {});

} // namespace corvane::IdentityLocator
