#pragma once

#include "Platform/Formats/FlatPackage/Bundle.hpp"
#include "Support/PropertyList.hpp"

#include <string>
#include <vector>

namespace corvane::FlatPackage {

enum class OverwriteAction { none, upgrade, update };

/// A bundle, and what the installer does about a copy of it that is installed already.
struct BundleComponent {
    Bundle bundle;
    bool hasStrictIdentifier = false;
    bool isRelocatable = false;
    bool isVersionChecked = false;
    OverwriteAction overwriteAction = OverwriteAction::none;
};

/// The rules that hold where nobody gives others: for what is not nested, versions are checked and upgrades replace;
/// applications must have the same identifier and may be found elsewhere.
std::vector<BundleComponent> defaultComponents(const std::vector<Bundle>& bundles);

/// The property list in which an administrator edits the rules.
/// @param components each before those that lie in it
PropertyList::Value makeComponentList(const std::vector<BundleComponent>& components);

/// What such a list says about bundles. Those that it does not name are left out; what it names and is not there is
/// passed over; a rule that it does not state does not hold.
/// @throws PropertyList::Error for what is no such list, and for bundles with scripts of their own
std::vector<BundleComponent> listedComponents(const PropertyList::Value& list, const std::vector<Bundle>& bundles);

} // namespace corvane::FlatPackage
