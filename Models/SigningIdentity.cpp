#include "Models/SigningIdentity.hpp"

#include "Support/Text.hpp"

#include <algorithm>

namespace corvane {

std::vector<SigningIdentity> SigningIdentity::parse(std::string_view findIdentityOutput) {
    std::vector<SigningIdentity> identities;
    for (const std::string_view line : Text::split(findIdentityOutput, '\n')) {
        const auto first = line.find('"');
        const auto last = line.rfind('"');
        if (first == std::string_view::npos || first == last) continue;
        SigningIdentity identity{std::string(line.substr(first + 1, last - first - 1))};
        if (!identity.name.starts_with("Developer ID Installer")) continue;
        if (std::find(identities.begin(), identities.end(), identity) == identities.end()) {
            identities.push_back(std::move(identity));
        }
    }
    return identities;
}

} // namespace corvane
